#ifndef KOR_TESTS_FAKES_FAKE_GL_H
#define KOR_TESTS_FAKES_FAKE_GL_H

#include "core/gl_headers.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

/// The system's GL library as the tests see it: libfake_gl.so exports the functions of
/// core/system_functions.def, records every call, answers from a script and fails on request. The
/// library under test reaches it through the dlopen handle, as it does the real one; a test reaches
/// its controls with load() below.
namespace fake {

using Word = uint64_t;

/// One recorded call.
struct Call {
    std::string name;
    /// As a reader would write it: "glXMakeCurrent(local, pbuffer1, context1)". Displays, handles
    /// and ids appear under their names (see Gl::nameDisplay and Gl::name), results as "out",
    /// attribute lists in braces, GL constants by name.
    std::string text;
    std::vector<Word> arguments; ///< one word each; a pointer's value, a float's bits
    std::vector<int> list;       ///< the attribute list's words, without the final zero
    std::vector<std::string> texts;
    pid_t thread = 0;
    GLXContext context = nullptr; ///< current on that thread when the call began
};

/// One fbconfig of a display; its GLX_VISUAL_ID attribute names the visual, if it has one.
struct FbConfig {
    GLXFBConfig handle = nullptr;
    std::map<int, int> attributes;
};

/// One visual of a display, as glXGetConfig and glXGetVisualFromFBConfig answer for it.
struct VisualRow {
    int depth = 24;
    int visualClass = TrueColor;
    std::map<int, int> attributes;
};

/// What one X server's GLX answers. glXChooseFBConfig offers the configs whose GLX_DOUBLEBUFFER is
/// the one asked for and whose sizes are at least those asked for, in the order given here.
struct DisplayScript {
    std::map<VisualID, VisualRow> visuals;
    std::vector<FbConfig> configs;
    std::string extensions;                   ///< glXQueryExtensionsString
    std::map<int, std::string> clientStrings; ///< by name; null where there is none
    std::map<int, std::string> serverStrings;
    int major = 1;
    int minor = 4;
};

/// Controls of the fake; every member may be called on any thread.
class Gl {
  public:
    /// Forgets records, scripts, failures, handlers and names; contexts stay current.
    virtual void reset() = 0;

    // The record.
    virtual std::vector<Call> calls() const = 0;
    virtual std::vector<Call> callsOf(const std::string& name) const = 0;
    virtual void clearCalls() = 0;
    /// Waits until name was called count times since the record was cleared; false after the time.
    virtual bool waitForCalls(const std::string& name, size_t count, int milliseconds) const = 0;

    // What a call gives.
    /// The library lacks these functions: dlsym finds nothing. To be said before kor_init.
    virtual void lack(const std::string& name) = 0;
    /// From now on the function has no effect and returns zero, null or false...
    virtual void fail(const std::string& name) = 0;
    /// ... or only its n-th call from now, 1 being the next...
    virtual void failCall(const std::string& name, int n) = 0;
    /// ... until this is called.
    virtual void succeed(const std::string& name) = 0;
    /// The function returns this word and has no other effect.
    virtual void answer(const std::string& name, Word result) = 0;
    /// Called for each call of that name ("" for all), on its thread, after it was recorded and
    /// before it takes effect; may call back into the fake. Replaces an earlier one.
    virtual void onCall(const std::string& name, std::function<void(const Call&)> handler) = 0;

    // The script.
    /// The servers, by DisplayString; "" answers for a null display.
    virtual void setDisplay(const std::string& displayString, const DisplayScript& script) = 0;
    virtual DisplayScript display(const std::string& displayString) const = 0;
    virtual void setInteger(GLenum name, GLint value) = 0; ///< for glGetIntegerv
    virtual void forgetInteger(GLenum name) = 0;           ///< glGetIntegerv then writes nothing
    virtual void setQueryResult(GLint samples) = 0;        ///< for glGetQueryObjectiv
    virtual void forgetQueryResult() = 0;                  ///< glGetQueryObjectiv writes nothing
    /// The pixels that glReadPixels delivers for column x and row y of the framebuffer.
    virtual void setPixels(std::function<uint32_t(int x, int y)> pixel) = 0;

    // Names for Call::text.
    virtual void nameDisplay(const std::string& displayString, const std::string& name) = 0;
    virtual void name(Word value, const std::string& name) = 0;
    virtual std::string nameOf(Word value) const = 0;

  protected:
    ~Gl() = default;
};

/// The controls of the fake loaded from that dlopen handle.
Gl& controls(void* handle);

/// The texts of some calls, for comparison.
std::vector<std::string> texts(const std::vector<Call>& calls);

/// A pointer or number as a word of Call::arguments.
template <typename T> Word word(T value) {
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<uintptr_t>(value);
    else
        return static_cast<Word>(value);
}

} // namespace fake

#endif
