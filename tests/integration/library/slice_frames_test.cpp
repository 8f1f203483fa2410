// The slices of frames that are read back and never painted: what is made, kept and deleted as the
// window's size changes.

#include "frames.h"

#include <algorithm>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SliceFrames : public Frames {
  protected:
    using Texts = std::vector<std::string>;

    /// As begin(), with nobody to paint.
    void beginUnpainted(int width, int height) {
        begin(width, height);
        set("DISPLAY", ":4711");
    }

    /// The next frame has that size.
    void resizeTo(int width, int height) {
        resizeWindow(window, width, height);
        record()->checkForResize();
        gl.clearCalls();
        markLog();
    }

    void swap() const { kor_glXSwapBuffers(app, window); }

    Texts deletions() const {
        Texts texts;
        for (const std::string& text : mine())
            if (text.rfind("glDelete", 0) == 0 && text.rfind("glDeleteSync", 0) != 0)
                texts.push_back(text);
        return texts;
    }

    Texts copies() const { return fake::texts(gl.callsOf("glCopyTexSubImage2D")); }
    static std::string copy(int x, int y, int width, int height) {
        return format("glCopyTexSubImage2D(GL_TEXTURE_RECTANGLE, 0, 0, 0, %d, %d, %d, %d)", x, -y,
                      width, height);
    }

    /// The sizes that textures got, each once.
    Texts sizes() const {
        Texts texts;
        for (const std::string& message : sayings("ReadbackSlice::performGPUReadback"))
            if (message.rfind("Resizing", 0) == 0)
                texts.push_back(message.substr(message.rfind("size") + 5));
        return texts;
    }
};

} // namespace

TEST_F(SliceFrames, AreLaidRowByRow) {
    beginUnpainted(4200, 4300);
    swap();
    EXPECT_THAT(copies(), ElementsAre(copy(0, 0, 4200, 4300), copy(2101, 0, 4200, 4300),
                                      copy(0, 2151, 4200, 4300), copy(2101, 2151, 4200, 4300)));
}

TEST_F(SliceFrames, OfAsManyInAnotherOrderAreKept) {
    beginUnpainted(5000, 20);
    swap();
    resizeTo(20, 5000);
    swap();
    EXPECT_THAT(copies(), ElementsAre(copy(0, 0, 20, 5000), copy(0, 2501, 20, 5000)));
    EXPECT_THAT(deletions(), IsEmpty());
    EXPECT_THAT(gl.callsOf("glGenTextures"), IsEmpty());
    EXPECT_THAT(sizes(), ElementsAre("20 x 5000", "20 x 5000"));
}

TEST_F(SliceFrames, GetTexturesOfANewSizeWhenOneDirectionChanges) {
    beginUnpainted(64, 48);
    swap();
    resizeTo(80, 48);
    swap();
    EXPECT_THAT(sizes(), ElementsAre("80 x 48"));
    EXPECT_EQ(gl.callsOf("glTexImage2D").size(), 2U);
    resizeTo(80, 60);
    swap();
    EXPECT_THAT(sizes(), ElementsAre("80 x 60"));
    EXPECT_EQ(gl.callsOf("glTexImage2D").size(), 2U);
}

TEST_F(SliceFrames, ThatNobodyReadHaveNoFramebufferOfTheWorkers) {
    beginUnpainted(64, 48);
    swap();
    resizeTo(5000, 20);
    swap();
    EXPECT_THAT(deletions(),
                ElementsAre("glDeleteTextures(1, {11})", "glDeleteFramebuffers(1, {41})",
                            "glDeleteProgram(71)", "glDeleteTextures(1, {12})"));
}

TEST_F(SliceFrames, OnAnIncompleteFramebufferHaveNoProgram) {
    beginUnpainted(64, 48);
    gl.answer("glCheckFramebufferStatus", 0x8CD6);
    swap();
    resizeTo(5000, 20);
    swap();
    EXPECT_THAT(deletions(),
                ElementsAre("glDeleteTextures(1, {11})", "glDeleteFramebuffers(1, {41})",
                            "glDeleteTextures(1, {12})"));
}

TEST_F(SliceFrames, AreAllPreparedThoughTheFirstHasAnIncompleteFramebuffer) {
    beginUnpainted(5000, 30);
    gl.answer("glCheckFramebufferStatus", 0x8CD6);
    gl.setInteger(GL_FRAMEBUFFER_BINDING, 9);
    swap();
    EXPECT_EQ(timesSaid('E', "ReadbackSlice::performGPUReadback", "Invalid framebuffer: 0x8CD6"),
              2U);
    EXPECT_THAT(sizes(), ElementsAre("5000 x 30", "5000 x 30"));
    // The one that was bound is not bound again.
    EXPECT_THAT(fake::texts(gl.callsOf("glBindFramebuffer")),
                ElementsAre("glBindFramebuffer(GL_FRAMEBUFFER, 41)",
                            "glBindFramebuffer(GL_FRAMEBUFFER, 42)"));
    EXPECT_EQ(gl.callsOf("glFenceSync").size(), 1U);
}
