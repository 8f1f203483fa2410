#ifndef KOR_TESTS_FRONT_FRONT_H
#define KOR_TESTS_FRONT_FRONT_H

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>

/// The folders that the build lays out (FRONT_STAGE): complete/ holds the front in kor/ with a fake
/// library and a fake adapter where it looks for them, bare/ the front alone, system/ a fake system
/// library.
inline const std::string stage = FRONT_STAGE;
inline const std::string fakeSystem = stage + "/system/libGL.so.1";
inline const std::string fakeKor = stage + "/complete/libGL_KOR.so";
inline const std::string fakeAdapter = stage + "/complete/kor/libkor-sysgl.so";
inline const std::string completeFront = stage + "/complete/kor/libGL.so.1";
inline const std::string bareFront = stage + "/bare/kor/libGL.so.1";

/// A library opened by its path, and its functions by their names.
class Library {
  public:
    explicit Library(const std::string& path, int flags = RTLD_NOW | RTLD_LOCAL)
        : handle_(dlopen(path.c_str(), flags)) {
        EXPECT_NE(handle_, nullptr) << dlerror();
    }

    void* handle() const { return handle_; }

    template <typename Result = const char*, typename... Arguments>
    Result call(const char* name, Arguments... arguments) const {
        auto* function = reinterpret_cast<Result (*)(Arguments...)>(dlsym(handle_, name));
        EXPECT_NE(function, nullptr) << name;
        return function(arguments...);
    }

    /// What one of the fakes' functions says, or "null".
    std::string says(const char* name) const {
        const char* text = call(name);
        return text == nullptr ? "null" : text;
    }

  private:
    void* handle_;
};

#endif
