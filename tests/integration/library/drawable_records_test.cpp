// The registry of drawable records: which one goes, what the thread forgets, what is kept.

#include "displays.h"

#include "core/tsd.h"
#include "drawable/registry.h"

using kor::gl::DrawableRef;
using testing::ElementsAre;

namespace {

class DrawableRecords : public Displays {
  protected:
    /// Two pbuffers, the one for drawing and the other for reading, with a context current.
    void beginWithPbuffers() {
        start();
        draw = kor_glXCreatePbuffer(app, config("double1"), nullptr);
        read = kor_glXCreatePbuffer(app, config("double1"), nullptr);
        context = makeContext("ctx");
        ASSERT_TRUE(kor_glXMakeContextCurrent(app, draw, read, context));
    }

    GLXPbuffer draw = None;
    GLXPbuffer read = None;
    GLXContext context = nullptr;
};

} // namespace

TEST_F(DrawableRecords, TheNewestOfAnIdIsErased) {
    start();
    gl.fail("glXCreatePbuffer"); // so that both bear the id None
    kor_glXCreatePbuffer(app, config("double1"), nullptr);
    const DrawableRef older = findLocalDrawable(None);
    ASSERT_TRUE(older);
    kor_glXCreatePbuffer(app, config("double1"), nullptr);
    EXPECT_NE(findLocalDrawable(None).get(), older.get());
    kor_glXDestroyPbuffer(app, None);
    EXPECT_EQ(findLocalDrawable(None).get(), older.get());
    kor_glXDestroyPbuffer(app, None);
    EXPECT_FALSE(findLocalDrawable(None));
}

TEST_F(DrawableRecords, ErasingTheDrawDrawableLeavesTheReadDrawable) {
    beginWithPbuffers();
    kor_glXDestroyPbuffer(app, draw);
    EXPECT_EQ(getTSD()->currentDrawable, nullptr);
    EXPECT_EQ(kor_glXGetCurrentReadDrawable(), read);
    EXPECT_EQ(kor_glXGetCurrentContext(), context);
}

TEST_F(DrawableRecords, ErasingTheReadDrawableLeavesTheDrawDrawable) {
    beginWithPbuffers();
    kor_glXDestroyPbuffer(app, read);
    EXPECT_EQ(getTSD()->currentReadDrawable, nullptr);
    EXPECT_EQ(kor_glXGetCurrentDrawable(), draw);
    EXPECT_EQ(kor_glXGetCurrentContext(), context);
}

TEST_F(DrawableRecords, NodesAreUsedAgain) {
    auto* const one = reinterpret_cast<kor::gl::DrawableInfo*>(0x10);
    auto* const two = reinterpret_cast<kor::gl::DrawableInfo*>(0x20);
    auto* const three = reinterpret_cast<kor::gl::DrawableInfo*>(0x30);
    kor::gl::DrawableList list;
    list.pushFront(one);
    list.pushFront(two);
    const auto* const node = &*list.begin();
    EXPECT_EQ(*list.unlink(list.begin()), one);
    EXPECT_EQ(list.size(), 1U);
    // Would take the node's place if its memory had been given back.
    kor::gl::DrawableList other;
    other.pushFront(one);
    EXPECT_NE(&*other.begin(), node);
    list.pushFront(three);
    EXPECT_EQ(&*list.begin(), node);
    EXPECT_THAT(std::vector<kor::gl::DrawableInfo*>(list.begin(), list.end()),
                ElementsAre(three, one));
}

TEST_F(DrawableRecords, APbufferIsComparedWithTheApplicationsFbconfigAndUsedAllTheSame) {
    start();
    const GLXPbuffer pbuffer = kor_glXCreatePbuffer(app, config("double2"), nullptr);
    const GLXContext forced = makeContext("ctx", config("double2")); // made with double1 in truth
    const DrawableRef record = findLocalDrawable(pbuffer);
    markLog();
    EXPECT_TRUE(kor_glXMakeCurrent(app, pbuffer, forced));
    EXPECT_THAT(sayings("getDrawableInfo"),
                ElementsAre("Cannot invalidate fbconfig if the drawable is not valid"));
    EXPECT_EQ(getTSD()->currentDrawable, record.get());
    EXPECT_FALSE(record->invalidatedFbconfig());
    EXPECT_EQ(gl.callsOf("glXMakeCurrent").back().text,
              "glXMakeCurrent(local, " + gl.nameOf(pbuffer) + ", ctx)");
    EXPECT_EQ(gl.callsOf("glXCreatePbuffer").size(), 1U);
}
