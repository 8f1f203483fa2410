#ifndef KOR_TESTS_LIBRARY_DISPLAYS_H
#define KOR_TESTS_LIBRARY_DISPLAYS_H

#include "fixture.h"

#include "framework/x_server.h"

/// The library between two real X servers: Xkor as the application display and Xvfb as the local
/// one. What their GLX says comes from the fake:
///
///   application visuals   doubleVisual, singleVisual: RGB 8, depth buffer 24, stencil 8
///                         lonelyVisual: the local display has nothing for it; all others: no GL
///   application fbconfigs one for each of the first two
///   local fbconfigs       double1, double2 (both localDoubleVisual), single (localSingleVisual)
///
/// In the fake's texts the servers are "app" and "local", handles bear the names above.
class Displays : public Library {
  protected:
    Displays();
    ~Displays() override;

    /// A window of the application, mapped and visible unless told otherwise, without border; the
    /// first at the screen's left, the next ones beside it.
    Window makeWindow(int width, int height, VisualID visual = 0, bool mapped = true);
    void resizeWindow(Window window, int width, int height);
    void destroyWindow(Window window);
    /// Waits until the server has every image that the painter has put, so that a window may go
    /// without an error.
    void letPaintsArrive() const;

    /// kor_glXCreateNewContext with double1 or another fbconfig, named for the fake's texts.
    GLXContext makeContext(const char* name, GLXFBConfig config = nullptr);

    /// The library's local connection of the calling thread.
    static Display* local();
    /// An entry of the script above, by its name.
    GLXFBConfig config(const std::string& name) const;
    XVisualInfo visualInfo(VisualID id) const;

    /// The library's process-wide locks that the calling thread holds.
    static std::vector<std::string> heldLocks();

    Display* app = nullptr;
    VisualID doubleVisual = 0;
    VisualID singleVisual = 0;
    VisualID lonelyVisual = 0;
    static constexpr VisualID localDoubleVisual = 0x301;
    static constexpr VisualID localSingleVisual = 0x302;

    fake::DisplayScript appScript;
    fake::DisplayScript localScript;
    /// Hands the two scripts to the fake; to be called again after a change.
    void useScripts();

    kor::test::XServer appServer;
    kor::test::XServer localServer;
    const std::string appName;
    const std::string localName;

    /// X errors that reached the application's handler.
    static std::vector<int> xErrors();

  private:
    void fillScripts();

    int nextWindowX_ = 0;
};

/// printf into a string.
std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));

#endif
