#include "local_display_test.h"

namespace kor::test {
namespace {

constexpr GLint unwritten = -1;

/// What the library asks of a context whatever its kind and state, and the error that GL would
/// leave behind for the application to find.
class QueryState : public testing::TestWithParam<Profile> {
  protected:
    void SetUp() override { ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer, context)); }
    void TearDown() override {
        EXPECT_EQ(gl.glGetError(), GLenum{GL_NO_ERROR});
        gl.glXMakeCurrent(display, None, nullptr);
        gl.glXDestroyContext(display, context);
    }
    bool isEmbedded() const { return GetParam() == Profile::Es2 || GetParam() == Profile::Es3; }

    const GlTable& gl = adaptedGl();
    Connection display;
    GLXFBConfig config = chooseConfig(display, {});
    GLXContext context = makeContext(gl, display, config, GetParam());
    GLXPbuffer pbuffer = makePbuffer(gl, display, config, 10, 10);
};

TEST_P(QueryState, RenderModeLeavesNoError) {
    GLint mode = unwritten;
    gl.glGetIntegerv(GL_RENDER_MODE, &mode);
    EXPECT_EQ(mode, GetParam() == Profile::Compatibility ? GL_RENDER : unwritten);
}

TEST_P(QueryState, OtherQuestionsReachTheDriver) {
    GLint size = unwritten;
    gl.glGetIntegerv(GL_MAX_TEXTURE_SIZE, &size);
    EXPECT_GT(size, 0);
}

TEST_P(QueryState, EndingAQueryThatDoesNotRunLeavesNoError) {
    gl.glEndQuery(GL_SAMPLES_PASSED);
    EXPECT_EQ(gl.glGetError(), GLenum{GL_NO_ERROR});
    directGl().glEndQuery(GL_SAMPLES_PASSED);
    EXPECT_NE(gl.glGetError(), GLenum{GL_NO_ERROR}) << "the driver would mind";
}

TEST_P(QueryState, ReadingAQueryThatNeverRanLeavesNoErrorAndWritesNothing) {
    GLint count = unwritten;
    gl.glGetQueryObjectiv(4711, GL_QUERY_RESULT, &count);
    EXPECT_EQ(count, unwritten);
}

TEST_P(QueryState, AQueryThatRunsCounts) {
    if (isEmbedded())
        return; // samples are not counted there
    GLuint query = 0;
    gl.glGenQueries(1, &query);
    gl.glBeginQuery(GL_SAMPLES_PASSED, query);
    gl.glBeginQuery(GL_SAMPLES_PASSED, query); // runs already
    gl.glEndQuery(GL_SAMPLES_PASSED);
    GLint count = unwritten;
    gl.glGetQueryObjectiv(query, GL_QUERY_RESULT, &count);
    EXPECT_EQ(count, 0);
}

TEST_P(QueryState, AQueryMayRunOnWhenItsContextIsLeftAndDestroyed) {
    GLuint query = 1;
    if (!isEmbedded())
        gl.glGenQueries(1, &query);
    gl.glBeginQuery(GL_SAMPLES_PASSED, query);
    drawPicture(gl, 10, 10, 1);
    gl.glXMakeCurrent(display, None, nullptr);
    gl.glXDestroyContext(display, context);
    context = makeContext(gl, display, config, GetParam());
    ASSERT_TRUE(gl.glXMakeCurrent(display, pbuffer, context));
    gl.glEndQuery(GL_SAMPLES_PASSED);
}

INSTANTIATE_TEST_SUITE_P(Profiles, QueryState,
                         testing::Values(Profile::Compatibility, Profile::Core, Profile::Es2,
                                         Profile::Es3),
                         [](const auto& row) {
                             switch (row.param) {
                             case Profile::Compatibility:
                                 return "Compatibility";
                             case Profile::Core:
                                 return "Core";
                             case Profile::Es2:
                                 return "Es2";
                             case Profile::Es3:
                                 break;
                             }
                             return "Es3";
                         });

} // namespace
} // namespace kor::test
