#include "shared_memory.h"

#include "config/settings.h"
#include "display_access.h"
#include "transport/segment_access.h"

#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <cerrno>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/statvfs.h>

namespace kordoctor {

namespace {

// The frame that is handed over: an image in a segment, gone with the object.
class SharedFrame {
  public:
    SharedFrame(Display* display, unsigned width, unsigned height) : m_display(display) {
        const int screen = DefaultScreen(display);
        m_image = XShmCreateImage(display, DefaultVisual(display, screen),
                                  static_cast<unsigned>(DefaultDepth(display, screen)), ZPixmap,
                                  nullptr, &m_segment, width, height);
    }
    ~SharedFrame() {
        if (m_attached)
            XShmDetach(m_display, &m_segment);
        if (m_image != nullptr) {
            m_image->data = nullptr;
            XDestroyImage(m_image);
        }
        if (m_segment.shmaddr != nullptr)
            shmdt(m_segment.shmaddr);
        if (m_made)
            shmctl(m_segment.shmid, IPC_RMID, nullptr);
    }
    SharedFrame(const SharedFrame&) = delete;
    SharedFrame& operator=(const SharedFrame&) = delete;

    XImage* image() const { return m_image; }
    size_t bytes() const {
        return static_cast<size_t>(m_image->bytes_per_line) * static_cast<size_t>(m_image->height);
    }

    // 0, or the error.
    int make() {
        m_segment.shmid = shmget(IPC_PRIVATE, bytes(), IPC_CREAT | kor::gl::segmentMode(m_display));
        if (m_segment.shmid < 0)
            return errno;
        m_made = true;
        void* address = shmat(m_segment.shmid, nullptr, 0);
        if (address == reinterpret_cast<void*>(-1))
            return errno;
        m_image->data = m_segment.shmaddr = static_cast<char*>(address);
        // Memory that is promised and not there ends the process here.
        memset(m_segment.shmaddr, 0, bytes());
        return 0;
    }

    bool attach() {
        m_attached = XShmAttach(m_display, &m_segment) != False;
        return m_attached;
    }

  private:
    Display* m_display;
    XImage* m_image = nullptr;
    XShmSegmentInfo m_segment{.shmseg = 0, .shmid = -1, .shmaddr = nullptr, .readOnly = False};
    bool m_made = false;
    bool m_attached = false;
};

std::string mebibytes(size_t bytes) {
    return std::to_string((bytes + (1 << 20) - 1) >> 20) + " MiB";
}

// What the rest of the road needs of /dev/shm; empty when there is enough.
std::string lackOfRoom(size_t frame) {
    struct statvfs space {};
    if (statvfs("/dev/shm", &space) != 0)
        return std::string("/dev/shm cannot be used: ") + strerror(errno);
    const size_t left = space.f_bavail * space.f_frsize;
    if (space.f_blocks != 0 && left < frame)
        return "/dev/shm has only " + mebibytes(left) + " left";
    return "";
}

} // namespace

void checkSharedMemory(Findings& findings, Display* display) {
    findings.begin("shared-memory");
    const int strategy = kor::conf::settings().copybackStrategy;
    // Without it frames take the slow road where the setting lets them, and none otherwise.
    const auto unusable = [&](const std::string& reason, const std::string& advice) {
        if (strategy == 2)
            findings.ok(reason + "; not needed, since copyback-strategy is 2");
        else if (strategy == 0)
            findings.warning(reason + "; frames are painted the slow way", advice);
        else
            findings.broken(reason, advice + "; or set copyback-strategy to 0 or 2, which is slow");
    };
    if (!XShmQueryExtension(display)) {
        unusable("the session's server has no MIT-SHM, or is on another machine",
                 "start it with \"+extension MIT-SHM\", on the machine that runs the programs");
        return;
    }
    const int screen = DefaultScreen(display);
    const auto width = static_cast<unsigned>(DisplayWidth(display, screen));
    const auto height = static_cast<unsigned>(DisplayHeight(display, screen));
    SharedFrame frame(display, width, height);
    if (frame.image() == nullptr) {
        unusable("no image can be made for it", "start the session's server with depth 24");
        return;
    }
    const std::string size = mebibytes(frame.bytes());
    if (const int error = frame.make(); error != 0) {
        unusable("no segment of " + size +
                     ", which a frame of the whole screen takes: " + strerror(error),
                 "raise the limits kernel.shmmax, kernel.shmall and kernel.shmmni (sysctl), or "
                 "remove segments that nobody uses (ipcs -m, ipcrm)");
        return;
    }
    ErrorTrap trap;
    if (!frame.attach() || !trap.error(display).empty()) {
        unusable("the session's server cannot attach our segment: " + trap.error(display),
                 "run the program and the server as users that may share memory, in one IPC "
                 "namespace (containers: --ipc=host, or one container for both)");
        return;
    }
    const Pixmap target = XCreatePixmap(display, DefaultRootWindow(display), width, height,
                                        static_cast<unsigned>(DefaultDepth(display, screen)));
    XShmPutImage(display, target, DefaultGC(display, screen), frame.image(), 0, 0, 0, 0, width,
                 height, False);
    const std::string error = trap.error(display);
    XFreePixmap(display, target);
    if (!error.empty())
        unusable("the session's server refuses to take a frame: " + error, "see the server's log");
    else if (const std::string lack = lackOfRoom(frame.bytes()); !lack.empty())
        findings.warning("a frame of " + size + " was attached and put, but " + lack,
                         "make room there, or enlarge it (mount -o remount,size=..., containers: "
                         "--shm-size)");
    else
        findings.ok("a frame of " + size + " was attached and put");
}

} // namespace kordoctor
