#include "obedient_driver_case.h"

#include <thread>

namespace kor::test {
namespace {

/// A driver that notices who destroys, and that hands out memory as it finds it.
class LentContext : public ObedientDriver {
  protected:
    GLXPbuffer plain(int width) const {
        const int attributes[] = {
            GLX_PBUFFER_WIDTH, width, GLX_PBUFFER_HEIGHT, 4, GLX_PRESERVED_CONTENTS, True, None};
        return create(display, nullptr, attributes);
    }
    GLXContext currentContext() const {
        return control<decltype(glXGetCurrentContext)>("glXGetCurrentContext")();
    }
};

TEST_F(LentContext, ADrawableOrContextDestroyedWithNoneCurrentMeetsOneOfOurs) {
    prepare(true);
    auto* destroyContext = adapter.find<decltype(glXDestroyContext)>("glXDestroyContext");
    const int bare = bareDestroys(); // of the driver's trial
    for (int i = 0; i < 200; i++) {
        destroy(display, plain(i + 1));
        destroyContext(display, makeDriverContext());
        EXPECT_EQ(currentContext(), nullptr) << "lent, not given";
    }
    EXPECT_EQ(bareDestroys(), bare);
}

TEST_F(LentContext, TheSameContextIsLentEveryTime) {
    prepare(true);
    auto* destroyContext = adapter.find<decltype(glXDestroyContext)>("glXDestroyContext");
    destroyContext(display, makeDriverContext());
    const int made = contexts();
    for (int i = 0; i < 10; i++)
        destroyContext(display, makeDriverContext());
    EXPECT_EQ(contexts(), made + 10);
}

TEST_F(LentContext, AThreadWithAContextKeepsIt) {
    prepare(true);
    GLXContext context = makeDriverContext();
    makeCurrent(display, plain(1), context);
    auto* destroyContext = adapter.find<decltype(glXDestroyContext)>("glXDestroyContext");
    const int before = calls();
    destroyContext(display, makeDriverContext());
    EXPECT_EQ(calls(), before + 2) << "making it and destroying it";
    EXPECT_EQ(currentContext(), context);
    makeCurrent(display, None, nullptr);
}

TEST_F(LentContext, WhatIsLeftIsLimited) {
    prepare(true);
    const int before = livePbuffers();
    for (int i = 0; i < 300; i++)
        destroy(display, plain(i + 1));
    EXPECT_LE(livePbuffers(), before + 65) << "sixty-four, and the lent context's";
    for (int i = 0; i < 10; i++)
        destroy(display, plain(4'000'000 + i));
    EXPECT_LE(livePbuffers(), before + 2) << "no more than two large windows";
}

TEST_F(LentContext, WhatIsLeftEndsWithTheConnection) {
    prepare(true);
    const int before = livePbuffers();
    const int bare = bareDestroys();
    {
        const Connection closed(false);
        adapter.find<decltype(kor_adapter_local_display)>("kor_adapter_local_display")(closed);
        for (int i = 0; i < 3; i++)
            destroy(closed, create(closed, nullptr, nullptr));
        std::thread([&] { destroy(closed, create(closed, nullptr, nullptr)); }).join();
        EXPECT_GT(livePbuffers(), before + 3);
    }
    EXPECT_EQ(livePbuffers(), before);
    EXPECT_EQ(bareDestroys() - bare, 5) << "the trial's three, and the helper itself";
    // The thread itself forgets it, too.
    GLXContext context = makeDriverContext();
    const GLXPbuffer drawable = plain(1);
    makeCurrent(display, drawable, context);
    EXPECT_EQ(livePbuffers(), before + 2) << "this one, and the helper's on this connection";
    makeCurrent(display, None, nullptr);
}

TEST_F(LentContext, ANewPbufferIsClearedInAllItsBuffers) {
    prepare(true);
    control<decltype(obedientNewPbuffersHave)>("obedientNewPbuffersHave")(Red);
    GLXContext context = makeDriverContext();
    makeCurrent(display, create(display, nullptr, nullptr), context);
    const GLXPbuffer drawable = plain(7);
    EXPECT_EQ(currentContext(), context);
    EXPECT_EQ(front(drawable), 0);
    EXPECT_EQ(control<decltype(obedientBack)>("obedientBack")(drawable), 0);
    makeCurrent(display, None, nullptr);
}

TEST_F(LentContext, APbufferMadeAgainInARowCostsTheDriverNothing) {
    prepare(true);
    const GLXPbuffer drawable = plain(8);
    const int before = calls();
    destroy(display, drawable);
    EXPECT_EQ(plain(8), drawable);
    EXPECT_EQ(calls(), before);
}

} // namespace
} // namespace kor::test
