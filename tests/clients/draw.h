// Ways to draw a picture so that every pixel is exact: no filtering, no blending, one texel or one
// rectangle per pixel. All of them draw into the current draw buffer over the whole drawable.
#pragma once

#include "client.h"

#include <string>

namespace kor::client {

// Fixed-function contexts. glDrawPixels at the lower left corner.
void drawPixels(const Picture& picture);

// Fixed-function contexts. One textured quad, rasterised as primitives; with an area, only that
// part of the drawable is drawn.
void drawQuad(const Picture& picture);
void drawQuad(const Picture& picture, const Rectangle& area);

// Any context. One scissored clear per pixel, for small pictures.
void drawClears(const Picture& picture);

enum class Profile { Core, Es2, Es3 };

// A programmable context's way: the picture as a texture over a triangle strip. Needs a current
// context of the given profile; leaves program, texture and arrays bound as it goes.
class ShaderPainter {
  public:
    explicit ShaderPainter(Profile profile);
    void draw(const Picture& picture) const;

  private:
    GLuint m_program = 0;
    GLuint m_texture = 0;
};

// Ends the process when GL has an error to report.
void requireNoError(const std::string& what);

} // namespace kor::client
