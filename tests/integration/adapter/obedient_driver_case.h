#ifndef KOR_TESTS_ADAPTER_OBEDIENT_DRIVER_CASE_H
#define KOR_TESTS_ADAPTER_OBEDIENT_DRIVER_CASE_H

#include "local_display_test.h"

#include "adapter/adapter.h"
#include "fresh_adapter.h"
#include "obedient_driver.h"

#include <dlfcn.h>

namespace kor::test {

/// The adapter in front of the made-up driver, on a connection to a real server.
class ObedientDriver : public testing::Test {
  protected:
    template <typename Function> Function* control(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(driver, name));
    }
    void prepare(bool keepsFront) {
        ASSERT_TRUE(adapter.init(driver));
        control<decltype(obedientKeepFront)>("obedientKeepFront")(keepsFront);
        adapter.find<decltype(kor_adapter_local_display)>("kor_adapter_local_display")(display);
        create = adapter.find<decltype(glXCreatePbuffer)>("glXCreatePbuffer");
        swap = adapter.find<decltype(glXSwapBuffers)>("glXSwapBuffers");
        makeCurrent = adapter.find<decltype(glXMakeCurrent)>("glXMakeCurrent");
        destroy = adapter.find<decltype(glXDestroyPbuffer)>("glXDestroyPbuffer");
    }
    int calls() const { return control<decltype(obedientCalls)>("obedientCalls")(); }
    int contexts() const { return control<decltype(obedientContexts)>("obedientContexts")(); }
    GLXContext makeDriverContext() const {
        return control<decltype(glXCreateNewContext)>("glXCreateNewContext")(
            display, nullptr, GLX_RGBA_TYPE, nullptr, True);
    }
    /// Draws red and swaps.
    void frame(GLXDrawable drawable) const {
        control<decltype(glClearColor)>("glClearColor")(1, 0, 0, 1);
        control<decltype(glClear)>("glClear")(GL_COLOR_BUFFER_BIT);
        swap(display, drawable);
    }
    int front(GLXDrawable drawable) const {
        return control<decltype(obedientFront)>("obedientFront")(drawable);
    }
    int livePbuffers() const {
        return control<decltype(obedientLivePbuffers)>("obedientLivePbuffers")();
    }
    int bareDestroys() const {
        return control<decltype(obedientBareDestroys)>("obedientBareDestroys")();
    }
    static constexpr int Red = 0xff00;

    const FreshAdapter adapter;
    void* driver = adapter.openElsewhere(KOR_OBEDIENT_DRIVER);
    Connection display{false};
    decltype(&glXCreatePbuffer) create = nullptr;
    decltype(&glXSwapBuffers) swap = nullptr;
    decltype(&glXMakeCurrent) makeCurrent = nullptr;
    decltype(&glXDestroyPbuffer) destroy = nullptr;
};

} // namespace kor::test

#endif
