#include "frames.h"

void Frames::begin(int width, int height) {
    start();
    context = makeContext("ctx");
    window = makeWindow(width, height);
    ASSERT_NE(context, nullptr);
    ASSERT_TRUE(kor_glXMakeCurrent(app, window, context));
    gl.clearCalls();
    markLog();
}

bool Frames::swapAndPaint() {
    const size_t before = gl.callsOf("glPopClientAttrib").size();
    kor_glXSwapBuffers(app, window);
    return gl.waitForCalls("glPopClientAttrib", before + 1, 5000);
}

std::vector<std::string> Frames::mine() const {
    std::vector<std::string> texts;
    for (const fake::Call& call : gl.calls())
        if (call.thread == gettid())
            texts.push_back(call.text);
    return texts;
}

std::vector<std::string> Frames::workers() const {
    const auto reads = gl.callsOf("glReadPixels");
    std::vector<std::string> texts;
    for (const fake::Call& call : gl.calls())
        if (!reads.empty() && call.thread == reads.back().thread)
            texts.push_back(call.text);
    return texts;
}

std::string Frames::pbuffer() const {
    return gl.nameOf(record()->localDrawable);
}
