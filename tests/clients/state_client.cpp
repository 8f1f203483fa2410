// state_client: an application with a framebuffer, a scissor and masks of its own bound at the
// swap. The whole back buffer is shown all the same, and afterwards every bit of state is as it
// was.
#include "client.h"
#include "draw.h"

#include <array>
#include <map>

using namespace kor::client;

namespace {

constexpr int kWidth = 88;
constexpr int kHeight = 66;

struct Query {
    GLenum name;
    int values;
};

constexpr Query kQueries[] = {
    {GL_DRAW_FRAMEBUFFER_BINDING, 1},
    {GL_READ_FRAMEBUFFER_BINDING, 1},
    {GL_DRAW_BUFFER, 1},
    {GL_READ_BUFFER, 1},
    {GL_VIEWPORT, 4},
    {GL_SCISSOR_BOX, 4},
    {GL_SCISSOR_TEST, 1},
    {GL_COLOR_WRITEMASK, 4},
    {GL_DEPTH_TEST, 1},
    {GL_DEPTH_WRITEMASK, 1},
    {GL_DITHER, 1},
    {GL_BLEND, 1},
    {GL_STENCIL_TEST, 1},
    {GL_CULL_FACE, 1},
    {GL_ACTIVE_TEXTURE, 1},
    {GL_TEXTURE_BINDING_2D, 1},
    {GL_TEXTURE_BINDING_RECTANGLE, 1},
    {GL_CURRENT_PROGRAM, 1},
    {GL_ARRAY_BUFFER_BINDING, 1},
    {GL_PIXEL_PACK_BUFFER_BINDING, 1},
    {GL_PIXEL_UNPACK_BUFFER_BINDING, 1},
    {GL_PACK_ALIGNMENT, 1},
    {GL_PACK_ROW_LENGTH, 1},
    {GL_PACK_SKIP_ROWS, 1},
    {GL_PACK_SKIP_PIXELS, 1},
    {GL_UNPACK_ALIGNMENT, 1},
    {GL_UNPACK_ROW_LENGTH, 1},
    {GL_MATRIX_MODE, 1},
    {GL_RENDER_MODE, 1},
    {GL_VERTEX_ARRAY_BINDING, 1},
    {GL_POLYGON_MODE, 2},
    {GL_RASTERIZER_DISCARD, 1},
};

using State = std::map<GLenum, std::array<GLint, 4>>;

State queryState() {
    State state;
    for (const Query& query : kQueries) {
        std::array<GLint, 4> values{};
        glGetIntegerv(query.name, values.data());
        state[query.name] = values;
    }
    requireNoError("query the state");
    return state;
}

void requireSame(const State& before, const State& after, const std::string& what) {
    for (const Query& query : kQueries) {
        for (int i = 0; i < query.values; ++i) {
            const auto index = static_cast<std::size_t>(i);
            require(before.at(query.name)[index] == after.at(query.name)[index],
                    what + ": state " + std::to_string(query.name) + " changed from " +
                        std::to_string(before.at(query.name)[index]) + " to " +
                        std::to_string(after.at(query.name)[index]));
        }
    }
}

// A framebuffer of the application's own with a picture of one colour in it.
GLuint createFramebuffer() {
    GLuint texture = 0;
    GLuint framebuffer = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 32, 32, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    require(glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE,
            "a complete framebuffer");
    glClearColor(1.0F, 0.5F, 0.0F, 1.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    requireNoError("create a framebuffer");
    return framebuffer;
}

// Everything that could spoil a careless copy of the frame.
void setHostileState(GLuint framebuffer, GLuint texture, GLuint rectangle, GLuint buffer) {
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glViewport(3, 4, 20, 21);
    glEnable(GL_SCISSOR_TEST);
    glScissor(5, 6, 7, 8);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    glEnable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    glEnable(GL_BLEND);
    glEnable(GL_STENCIL_TEST);
    glStencilFunc(GL_NEVER, 1, 1);
    glEnable(GL_CULL_FACE);
    glCullFace(GL_FRONT_AND_BACK);
    glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
    glEnable(GL_RASTERIZER_DISCARD);
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, texture);
    glBindTexture(GL_TEXTURE_RECTANGLE, rectangle);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, buffer);
    glPixelStorei(GL_PACK_ALIGNMENT, 2);
    glPixelStorei(GL_PACK_ROW_LENGTH, 17);
    glPixelStorei(GL_PACK_SKIP_ROWS, 2);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 3);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 19);
    glMatrixMode(GL_TEXTURE);
    requireNoError("set the state");
}

void setOrdinaryState() {
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    for (const GLenum capability :
         {GL_DEPTH_TEST, GL_BLEND, GL_STENCIL_TEST, GL_CULL_FACE, GL_RASTERIZER_DISCARD})
        glDisable(capability);
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glBindTexture(GL_TEXTURE_RECTANGLE, 0);
    glActiveTexture(GL_TEXTURE0);
    requireNoError("reset the state");
}

} // namespace

int main() {
    Display* const display = openDisplay();
    XVisualInfo* const visual = chooseVisual(display, Buffering::Double);
    const Window window = createWindow(display, visual, {40, 30, kWidth, kHeight});
    const GLXContext context = createContext(display, visual);
    makeCurrent(display, window, context);
    const GLuint framebuffer = createFramebuffer();
    std::array<GLuint, 2> textures{};
    glGenTextures(2, textures.data());
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);

    for (unsigned frame = 1; frame <= 4; ++frame) {
        const std::string name = "frame " + std::to_string(frame);
        const Picture picture(kWidth, kHeight, frame);
        setOrdinaryState();
        drawQuad(picture);
        setHostileState(framebuffer, textures[0], textures[1], buffer);
        const State before = queryState();
        glXSwapBuffers(display, window);
        requireSame(before, queryState(), name);
        requireShown(display, window, picture, name);
    }

    // The colour mask holds for the application's own drawing, as it should: green alone changes.
    Picture mixed(kWidth, kHeight, 4);
    setOrdinaryState();
    drawQuad(mixed);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_FALSE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(10, kHeight - 20 - 30, 40, 30);
    glClearColor(0.0F, 1.0F, 0.0F, 0.0F);
    glClear(GL_COLOR_BUFFER_BIT);
    glXSwapBuffers(display, window);
    for (int y = 20; y < 50; ++y) {
        for (int x = 10; x < 50; ++x)
            mixed.set(x, y, mixed.colour(x, y) | 0x00FF00U);
    }
    requireShown(display, window, mixed, "a masked clear");

    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XDestroyWindow(display, window);
    XFree(visual);
    XCloseDisplay(display);
    return passed("state_client");
}
