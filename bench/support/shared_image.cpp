#include "support/shared_image.h"

#include "support/comparison.h"

#include <sys/ipc.h>
#include <sys/shm.h>

namespace kor::bench {

SharedImage::SharedImage(Display* display, const XVisualInfo& visual, int width, int height)
    : m_display(display),
      m_image(XShmCreateImage(display, visual.visual, static_cast<unsigned>(visual.depth), ZPixmap,
                              nullptr, &m_segment, static_cast<unsigned>(width),
                              static_cast<unsigned>(height))) {
    if (m_image == nullptr)
        fail("no shared image can be made");
    const auto bytes = static_cast<size_t>(m_image->bytes_per_line) * static_cast<size_t>(height);
    m_segment.shmid = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    m_segment.shmaddr = static_cast<char*>(shmat(m_segment.shmid, nullptr, 0));
    if (m_segment.shmaddr == reinterpret_cast<char*>(-1))
        fail("no shared memory can be had");
    m_image->data = m_segment.shmaddr;
    XShmAttach(display, &m_segment);
    XSync(display, False);
    shmctl(m_segment.shmid, IPC_RMID, nullptr);
}

void SharedImage::put(Window window, GC gc) {
    XShmPutImage(m_display, window, gc, m_image, 0, 0, 0, 0, static_cast<unsigned>(m_image->width),
                 static_cast<unsigned>(m_image->height), False);
}

} // namespace kor::bench
