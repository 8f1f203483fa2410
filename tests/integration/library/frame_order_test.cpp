// The calls that one frame makes to the driver, thread by thread.

#include "frames.h"

#include "framework/wait_until.h"

#include <algorithm>
#include <thread>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

namespace {

class FrameOrder : public Frames {
  protected:
    using Texts = std::vector<std::string>;

    static void append(Texts& to, const Texts& more) {
        to.insert(to.end(), more.begin(), more.end());
    }

    static Texts swap(const std::string& pbuffer) {
        return {"glFinish()", "glXSwapBuffers(local, " + pbuffer + ")", "glXGetCurrentContext()",
                "glGetIntegerv(GL_RENDER_MODE, out)"};
    }

    static Texts textures(const std::string& name) {
        return {
            "glGenTextures(1, out)", "glBindTexture(GL_TEXTURE_RECTANGLE, " + name + ")",
            format("glTexParameteri(GL_TEXTURE_RECTANGLE, GL_TEXTURE_MIN_FILTER, %d)", GL_NEAREST),
            format("glTexParameteri(GL_TEXTURE_RECTANGLE, GL_TEXTURE_MAG_FILTER, %d)", GL_NEAREST)};
    }

    static Texts allocation(const std::string& name, int width, int height) {
        return {"glBindTexture(GL_TEXTURE_RECTANGLE, " + name + ")",
                format("glTexImage2D(GL_TEXTURE_RECTANGLE, 0, %d, %d, %d, 0, GL_RGBA, "
                       "GL_UNSIGNED_BYTE, null)",
                       GL_RGBA8, width, height)};
    }

    /// What the first frame makes: textures, framebuffer and program; numbers as the fake gives
    /// them to slice n (from 0).
    static Texts preparation(int n, int width, int height) {
        const std::string target = std::to_string(11 + 2 * n);
        const std::string source = std::to_string(12 + 2 * n);
        const std::string framebuffer = std::to_string(41 + n);
        const std::string program = std::to_string(71 + n);
        const std::string fragment = std::to_string(101 + 2 * n);
        const std::string vertex = std::to_string(102 + 2 * n);
        Texts texts = textures(target);
        append(texts, textures(source));
        append(texts, allocation(target, width, height));
        append(texts, allocation(source, width, height));
        append(texts,
               {"glGetIntegerv(GL_FRAMEBUFFER_BINDING, out)", "glGenFramebuffers(1, out)",
                "glBindFramebuffer(GL_FRAMEBUFFER, " + framebuffer + ")",
                "glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, " + target + ", 0)",
                "glCheckFramebufferStatus(GL_FRAMEBUFFER)", "glCreateProgram()",
                "glCreateShader(GL_FRAGMENT_SHADER)", "glShaderSource(" + fragment + ")",
                "glCompileShader(" + fragment + ")", "glCreateShader(GL_VERTEX_SHADER)",
                "glShaderSource(" + vertex + ")", "glCompileShader(" + vertex + ")",
                "glAttachShader(" + program + ", " + vertex + ")",
                "glAttachShader(" + program + ", " + fragment + ")",
                "glLinkProgram(" + program + ")", "glBindFramebuffer(GL_FRAMEBUFFER, 0)"});
        return texts;
    }

    static Texts flip(int n, int x, int y, int width, int height) {
        const std::string target = std::to_string(11 + 2 * n);
        const std::string source =
            "glBindTexture(GL_TEXTURE_RECTANGLE, " + std::to_string(12 + 2 * n) + ")";
        const std::string program = std::to_string(71 + n);
        return {"glActiveTexture(GL_TEXTURE0)",
                source,
                format("glCopyTexSubImage2D(GL_TEXTURE_RECTANGLE, 0, 0, 0, %d, %d, %d, %d)", x, -y,
                       width, height),
                format("glViewport(0, 0, %d, %d)", width, height),
                "glUseProgram(" + program + ")",
                "glBindFramebuffer(GL_FRAMEBUFFER, " + std::to_string(41 + n) + ")",
                "glGetUniformLocation(" + program + ", \"u_texHeight_minus_one\")",
                format("glUniform1f(1, %d)", height),
                source,
                "glGetUniformLocation(" + program + ", \"u_tex_input\")",
                "glUniform1i(2, 0)",
                "glDrawArrays(4, 0, 3)",
                "glUseProgram(0)",
                "glBindFramebuffer(GL_FRAMEBUFFER, 0)",
                "glBindTexture(GL_TEXTURE_RECTANGLE, " + target + ")"};
    }

    static std::string waitFor(const std::string& fence) {
        return "glClientWaitSync(" + fence + ", 1, 0xffffffffffffffff)"; // without end, and flushes
    }

    static Texts fence() {
        return {"glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0)",
                "glBindTexture(GL_TEXTURE_RECTANGLE, 0)", "glFlush()"};
    }

    /// The shader's source does not belong into the comparison.
    Texts mineWithoutSources() const {
        Texts texts = mine();
        for (std::string& text : texts)
            if (text.rfind("glShaderSource(", 0) == 0)
                text = text.substr(0, text.find(',')) + ")";
        return texts;
    }

    std::string read() const { return gl.nameOf(fake::word(record()->readContext)); }
    std::string worker() const {
        return "context" + std::to_string(std::stoi(read().substr(7)) + 1);
    }
    std::string nameOfDummy() const {
        return "pbuffer" + std::to_string(std::stoi(pbuffer().substr(7)) - 1);
    }

    static std::string createContext(const std::string& share) {
        return format("glXCreateNewContext(local, double1, %d, %s, 1)", GLX_RGBA_TYPE,
                      share.c_str());
    }

    static Texts transfer(int n, const std::string& framebuffer, bool first, int x, int frameWidth,
                          int width, int height, int y = 0) {
        Texts texts = {"glGetIntegerv(GL_FRAMEBUFFER_BINDING, out)"};
        if (first)
            texts.emplace_back("glGenFramebuffers(1, out)");
        texts.push_back("glBindFramebuffer(GL_FRAMEBUFFER, " + framebuffer + ")");
        if (first)
            texts.push_back(format("glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, "
                                   "%d, 0)",
                                   11 + 2 * n));
        append(texts,
               {"glPushClientAttrib(1)",
                format("glPixelStorei(GL_PACK_ROW_LENGTH, %d)", frameWidth),
                format("glPixelStorei(GL_PACK_SKIP_PIXELS, %d)", x),
                format("glPixelStorei(GL_PACK_SKIP_ROWS, %d)", y),
                format("glReadPixels(0, 0, %d, %d, GL_BGRA, GL_UNSIGNED_BYTE", width, height),
                "glPopClientAttrib()", "glBindFramebuffer(GL_FRAMEBUFFER, 0)"});
        return texts;
    }

    /// The worker's calls with the buffer's address taken off.
    Texts workersWithoutAddress() const {
        Texts texts = workers();
        for (std::string& text : texts)
            if (text.rfind("glReadPixels(", 0) == 0)
                text = text.substr(0, text.rfind(','));
        return texts;
    }
};

} // namespace

TEST_F(FrameOrder, TheFirstFrameOfOneSlice) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    Texts expected = swap(pbuffer());
    append(expected,
           {createContext("null"), "glXMakeCurrent(local, " + pbuffer() + ", " + read() + ")",
            "glPixelStorei(GL_PACK_ALIGNMENT, 1)", "glDisable(GL_DEPTH_TEST)",
            "glDisable(GL_DITHER)", "glReadBuffer(GL_FRONT)", "glViewport(0, 0, 2, 2)",
            createContext(read())});
    append(expected, preparation(0, 64, 48));
    append(expected, flip(0, 0, 0, 64, 48));
    append(expected, fence());
    append(expected, {"glXMakeCurrent(local, " + pbuffer() + ", ctx)"});
    EXPECT_THAT(mineWithoutSources(), ElementsAreArray(expected));
}

TEST_F(FrameOrder, TheSecondFrameMakesNoNewObjects) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    gl.clearCalls();
    ASSERT_TRUE(swapAndPaint());
    Texts expected = swap(pbuffer());
    append(expected, {"glXMakeCurrent(local, " + pbuffer() + ", " + read() + ")",
                      "glBindTexture(GL_TEXTURE_RECTANGLE, 12)",
                      "glGetIntegerv(GL_FRAMEBUFFER_BINDING, out)"});
    append(expected, flip(0, 0, 0, 64, 48));
    append(expected, fence());
    append(expected, {"glXMakeCurrent(local, " + pbuffer() + ", ctx)"});
    EXPECT_THAT(mine(), ElementsAreArray(expected));
}

TEST_F(FrameOrder, TheWorkerWaitsForTheFenceAndReads) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    // The fence's number: the first one of this process.
    Texts expected = {"glXMakeCurrent(local, " + nameOfDummy() + ", " + worker() + ")",
                      waitFor("fence1"), "glDeleteSync(fence1)"};
    append(expected, transfer(0, "42", true, 0, 64, 64, 48));
    expected.emplace_back("glBindFramebuffer(GL_FRAMEBUFFER, 0)");
    ASSERT_TRUE(kor::test::waitUntil([&] { return workers().size() >= expected.size(); }));
    EXPECT_THAT(workersWithoutAddress(), ElementsAreArray(expected));
    gl.clearCalls();
    ASSERT_TRUE(swapAndPaint());
    expected = {waitFor("fence2"), "glDeleteSync(fence2)"};
    append(expected, transfer(0, "42", false, 0, 64, 64, 48));
    expected.emplace_back("glBindFramebuffer(GL_FRAMEBUFFER, 0)");
    kor::test::waitUntil([&] { return workers().size() >= expected.size(); });
    EXPECT_THAT(workersWithoutAddress(), ElementsAreArray(expected));
}

TEST_F(FrameOrder, AWideWindowTakesTwoSlices) {
    begin(5000, 30);
    ASSERT_TRUE(swapAndPaint());
    ASSERT_TRUE(gl.waitForCalls("glReadPixels", 2, 5000));
    Texts expected = swap(pbuffer());
    append(expected,
           {createContext("null"), "glXMakeCurrent(local, " + pbuffer() + ", " + read() + ")",
            "glPixelStorei(GL_PACK_ALIGNMENT, 1)", "glDisable(GL_DEPTH_TEST)",
            "glDisable(GL_DITHER)", "glReadBuffer(GL_FRONT)", "glViewport(0, 0, 2, 2)",
            createContext(read())});
    append(expected, preparation(0, 5000, 30));
    append(expected, flip(0, 0, 0, 5000, 30));
    append(expected, preparation(1, 5000, 30));
    append(expected, flip(1, 2501, 0, 5000, 30));
    append(expected, fence());
    append(expected, {"glXMakeCurrent(local, " + pbuffer() + ", ctx)"});
    EXPECT_THAT(mineWithoutSources(), ElementsAreArray(expected));
    // The frame's extent is 7501: the second slice's place plus the width of its texture.
    Texts reads = {"glXMakeCurrent(local, " + nameOfDummy() + ", " + worker() + ")",
                   waitFor("fence1"), "glDeleteSync(fence1)"};
    append(reads, transfer(0, "43", true, 0, 7501, 2517, 30));
    append(reads, transfer(1, "44", true, 2501, 7501, 2499, 30));
    reads.emplace_back("glBindFramebuffer(GL_FRAMEBUFFER, 0)");
    kor::test::waitUntil([&] { return workers().size() >= reads.size(); });
    EXPECT_THAT(workersWithoutAddress(), ElementsAreArray(reads));
    EXPECT_EQ(kor::test::waitUntil([&] {
                  return said('D', "XImagePainter::draw",
                              format("XPutting image on %lx, size 7501 30", window));
              }),
              true);
}

TEST_F(FrameOrder, ATallWindowTakesTwoSlicesFromAboveEachOther) {
    begin(20, 5000);
    ASSERT_TRUE(swapAndPaint());
    EXPECT_THAT(fake::texts(gl.callsOf("glCopyTexSubImage2D")),
                ElementsAre("glCopyTexSubImage2D(GL_TEXTURE_RECTANGLE, 0, 0, 0, 0, 0, 20, 5000)",
                            "glCopyTexSubImage2D(GL_TEXTURE_RECTANGLE, 0, 0, 0, 0, -2501, 20, "
                            "5000)"));
    Texts reads = {"glXMakeCurrent(local, " + nameOfDummy() + ", " + worker() + ")",
                   waitFor("fence1"), "glDeleteSync(fence1)"};
    append(reads, transfer(0, "43", true, 0, 20, 20, 2517, 0));
    append(reads, transfer(1, "44", true, 0, 20, 20, 2499, 2501));
    reads.emplace_back("glBindFramebuffer(GL_FRAMEBUFFER, 0)");
    kor::test::waitUntil([&] { return workers().size() >= reads.size(); });
    EXPECT_THAT(workersWithoutAddress(), ElementsAreArray(reads));
    EXPECT_TRUE(kor::test::waitUntil([&] {
        return said('D', "XImagePainter::draw",
                    format("XPutting image on %lx, size 20 7501", window));
    }));
}

TEST_F(FrameOrder, AResizedWindowReallocatesItsTexturesOnce) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    resizeWindow(window, 80, 40);
    ASSERT_TRUE(swapAndPaint()); // still of the old size; its end finds the new one
    EXPECT_TRUE(said('D', "updateOffscreenPbuffer", "resized pbuffer to new geometry: 80x40"));
    gl.clearCalls();
    markLog();
    ASSERT_TRUE(swapAndPaint());
    EXPECT_EQ(timesSaid('D', "ReadbackSlice::performGPUReadback",
                        "Resizing GPU readback textures to new size 80 x 40"),
              1U);
    Texts expected = swap(pbuffer());
    append(expected, {"glXMakeCurrent(local, " + pbuffer() + ", " + read() + ")",
                      "glBindTexture(GL_TEXTURE_RECTANGLE, 12)"});
    append(expected, allocation("11", 80, 40));
    append(expected, allocation("12", 80, 40));
    append(expected, {"glGetIntegerv(GL_FRAMEBUFFER_BINDING, out)"});
    append(expected, flip(0, 0, 0, 80, 40));
    append(expected, fence());
    append(expected, {"glXMakeCurrent(local, " + pbuffer() + ", ctx)"});
    EXPECT_THAT(mine(), ElementsAreArray(expected));
}

TEST_F(FrameOrder, AFrameThatWasNeverPaintedLosesItsFence) {
    set("KOR_GL_COPYBACK_FRAME_RATE", "1");
    begin(64, 48);
    kor_glXSwapBuffers(app, window);
    gl.clearCalls();
    kor_glXSwapBuffers(app, window);
    const Texts calls = mine();
    const auto deleted = std::find(calls.begin(), calls.end(), "glDeleteSync(fence1)");
    ASSERT_NE(deleted, calls.end());
    EXPECT_EQ(*(deleted + 1), "glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0)");
    EXPECT_EQ(*(deleted - 1), "glBindTexture(GL_TEXTURE_RECTANGLE, 11)");
    // Only the second one is painted.
    ASSERT_TRUE(gl.waitForCalls("glReadPixels", 1, 5000));
    EXPECT_THAT(fake::texts(gl.callsOf("glClientWaitSync")), ElementsAre(waitFor("fence2")));
    std::this_thread::sleep_for(std::chrono::milliseconds(1200)); // the second post's pass
    EXPECT_EQ(gl.callsOf("glReadPixels").size(), 1U);
}

TEST_F(FrameOrder, ChangingTheGridDeletesTheOldSlicesHere) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    resizeWindow(window, 5000, 20);
    ASSERT_TRUE(swapAndPaint());
    gl.clearCalls();
    ASSERT_TRUE(swapAndPaint());
    Texts deletions;
    for (const std::string& text : mine())
        if (text.rfind("glDelete", 0) == 0 && text.rfind("glDeleteSync", 0) != 0)
            deletions.push_back(text);
    EXPECT_THAT(deletions, ElementsAre("glDeleteTextures(1, {11})", "glDeleteFramebuffers(1, {42})",
                                       "glDeleteFramebuffers(1, {41})", "glDeleteProgram(71)",
                                       "glDeleteTextures(1, {12})"));
}

TEST_F(FrameOrder, TheApplicationsFramebufferIsBoundAgain) {
    begin(64, 48);
    gl.setInteger(GL_FRAMEBUFFER_BINDING, 9);
    ASSERT_TRUE(swapAndPaint());
    Texts bindings;
    for (const std::string& text : mine())
        if (text.rfind("glBindFramebuffer", 0) == 0)
            bindings.push_back(text);
    EXPECT_THAT(bindings, ElementsAre("glBindFramebuffer(GL_FRAMEBUFFER, 41)",
                                      "glBindFramebuffer(GL_FRAMEBUFFER, 9)",
                                      "glBindFramebuffer(GL_FRAMEBUFFER, 41)",
                                      "glBindFramebuffer(GL_FRAMEBUFFER, 9)"));
    gl.forgetInteger(GL_FRAMEBUFFER_BINDING);
    gl.clearCalls();
    ASSERT_TRUE(swapAndPaint());
    EXPECT_THAT(mine(), testing::Contains("glBindFramebuffer(GL_FRAMEBUFFER, 0)"));
}

TEST_F(FrameOrder, AnIncompleteFramebufferIsReportedOnceAndTheFrameGoesOn) {
    begin(64, 48);
    gl.answer("glCheckFramebufferStatus", 0x8CD6);
    kor_glXSwapBuffers(app, window);
    EXPECT_EQ(gl.callsOf("glCheckFramebufferStatus").size(), 2U); // asked a second time for the log
    EXPECT_TRUE(said('E', "ReadbackSlice::performGPUReadback", "Invalid framebuffer: 0x8CD6"));
    EXPECT_THAT(gl.callsOf("glDrawArrays"), IsEmpty());
    EXPECT_THAT(gl.callsOf("glFenceSync"), Not(IsEmpty()));
    gl.clearCalls();
    kor_glXSwapBuffers(app, window);
    EXPECT_THAT(gl.callsOf("glCheckFramebufferStatus"), IsEmpty());
    EXPECT_EQ(gl.callsOf("glUseProgram")[0].text, "glUseProgram(0)"); // with no program, by design
    EXPECT_EQ(gl.callsOf("glDrawArrays").size(), 1U);
}

TEST_F(FrameOrder, TheShadersAreTheFlipProgram) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    const auto sources = gl.callsOf("glShaderSource");
    ASSERT_EQ(sources.size(), 2U);
    EXPECT_EQ(
        sources[0].texts[0],
        "#version 330 core\nprecision highp float;\nprecision highp int;\n"
        "uniform sampler2DRect u_tex_input;\nuniform float u_texHeight_minus_one;\n"
        "out vec4 color;\nvoid main(void) {\n"
        "    color = texture( u_tex_input, vec2(gl_FragCoord.x - 0.5, u_texHeight_minus_one - "
        "gl_FragCoord.y - 0.5) );\n}\n");
    EXPECT_EQ(sources[1].texts[0],
              "#version 330 core\nprecision highp float;\nprecision highp int;\n"
              "void main(void) {\n   float x = -1.0 + float((gl_VertexID & 1) << 2);\n"
              "   float y = -1.0 + float((gl_VertexID & 2) << 1);\n"
              "   gl_Position = vec4(x, y, 0.0, 1.0);\n}\n");
    EXPECT_EQ(sources[0].arguments[1], 1U);
    EXPECT_EQ(sources[0].arguments[3], 0U); // length by terminator
}
