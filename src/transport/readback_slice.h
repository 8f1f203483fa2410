#ifndef KOR_TRANSPORT_READBACK_SLICE_H
#define KOR_TRANSPORT_READBACK_SLICE_H

#include "core/gl_headers.h"

namespace kor::gl {

/// One rectangle of a frame on its way from the GPU to system memory. Two contexts that share
/// textures work on it, never at once: the read context on the application thread copies and turns
/// the frame, the worker's context reads it. All extents are pixels.
class ReadbackSlice {
  public:
    ReadbackSlice() = default;
    /// Deletes the GL objects in whatever context is current.
    virtual ~ReadbackSlice();
    ReadbackSlice(const ReadbackSlice&) = delete;
    ReadbackSlice& operator=(const ReadbackSlice&) = delete;

    // Set by the grid before each use: the place in the frame, from the top left.
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    /// Copies the front buffer of the current drawable into a texture and turns it upside down into
    /// another. Application thread, read context current. False when the GPU cannot draw into the
    /// texture, found once.
    bool performGPUReadback(int frameWidth, int frameHeight);

    /// Reads the turned texture into its place of an image with frameWidth pixels a row, 4 bytes a
    /// pixel (B, G, R, A), rows from the top. Worker thread, its context current.
    bool transferToSystemMemory(char* buffer, int frameWidth, int frameHeight);

    /// The worker's framebuffer on the turned texture, made at the first call and bound.
    GLuint initSharedFBO();

    int textureWidth() const { return textureWidth_; }
    int textureHeight() const { return textureHeight_; }

  private:
    void prepareTextures(int frameWidth, int frameHeight);
    bool prepareProgram(GLint boundFramebuffer);

    int textureWidth_ = 0; // as last allocated
    int textureHeight_ = 0;
    GLuint targetTexture_ = 0;     // the turned frame
    GLuint sharedFramebuffer_ = 0; // the worker's
    GLuint framebuffer_ = 0;       // the read context's
    GLuint program_ = 0;
    GLuint sourceTexture_ = 0; // the frame as it was
};

} // namespace kor::gl

#endif
