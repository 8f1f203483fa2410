#ifndef KOR_TRANSPORT_FLIP_SHADERS_H
#define KOR_TRANSPORT_FLIP_SHADERS_H

namespace kor::gl {

/// Draws a rectangle texture upside down: one triangle of three vertices without attributes covers
/// the viewport.
constexpr char flipFragmentShader[] =
    "#version 330 core\n"
    "precision highp float;\n"
    "precision highp int;\n"
    "uniform sampler2DRect u_tex_input;\n"
    "uniform float u_texHeight_minus_one;\n"
    "out vec4 color;\n"
    "void main(void) {\n"
    "    color = texture( u_tex_input, vec2(gl_FragCoord.x - 0.5, u_texHeight_minus_one - "
    "gl_FragCoord.y - 0.5) );\n"
    "}\n";

constexpr char flipVertexShader[] = "#version 330 core\n"
                                    "precision highp float;\n"
                                    "precision highp int;\n"
                                    "void main(void) {\n"
                                    "   float x = -1.0 + float((gl_VertexID & 1) << 2);\n"
                                    "   float y = -1.0 + float((gl_VertexID & 2) << 1);\n"
                                    "   gl_Position = vec4(x, y, 0.0, 1.0);\n"
                                    "}\n";

/// The value for "u_texHeight_minus_one" with which row j of the result is row height - 1 - j of
/// the source. gl_FragCoord.y of row j is j + 0.5, so the shader samples at value - j - 1, and a
/// sample there reads row value - 1 - j: the value is the height itself. With the height minus one,
/// which the name suggests, the picture stands one row too high.
constexpr float flipUniform(int height) {
    return static_cast<float>(height);
}

} // namespace kor::gl

#endif
