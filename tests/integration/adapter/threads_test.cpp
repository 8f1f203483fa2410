#include "local_display_test.h"

#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>

namespace kor::test {
namespace {

constexpr int Width = 24;
constexpr int Height = 16;

TEST(Threads, ADrawableThatIsCurrentInAnotherThread) {
    const GlTable& gl = adaptedGl();
    const ErrorCounter errors;
    const Connection display;
    GLXFBConfig config = chooseConfig(display, {});
    const GLXPbuffer drawable = makePbuffer(gl, display, config, Width, Height);
    GLXContext context = makeContext(gl, display, config);
    std::binary_semaphore drawn(0);
    std::binary_semaphore swapped(0);
    std::thread owner([&] {
        EXPECT_TRUE(gl.glXMakeCurrent(display, drawable, context));
        for (int frame = 0; frame < 5; frame++) {
            drawPicture(gl, Width, Height, frame);
            gl.glFinish();
            drawn.release();
            swapped.acquire();
            EXPECT_EQ(gl.glXGetCurrentDrawable(), drawable);
        }
        gl.glXMakeCurrent(display, None, nullptr);
    });
    for (int frame = 0; frame < 5; frame++) {
        drawn.acquire();
        gl.glXSwapBuffers(display, drawable);
        EXPECT_EQ(gl.glXGetCurrentContext(), nullptr);
        EXPECT_EQ(difference(readFront(display, config, drawable, Width, Height),
                             pictureOf(Width, Height, frame), Width),
                  "")
            << "frame " << frame;
        swapped.release();
    }
    owner.join();
    EXPECT_EQ(errors.count(), 0);
}

/// Eight threads, on one or several connections, each with a drawable of its own. The library holds
/// one lock around GLX calls on local connections and none around GL calls, and so does this.
void swapInThreads(bool oneConnection) {
    constexpr int ThreadCount = 8;
    const GlTable& gl = adaptedGl();
    const ErrorCounter errors;
    std::vector<std::unique_ptr<Connection>> connections;
    connections.reserve(ThreadCount);
    for (int i = 0; i < (oneConnection ? 1 : ThreadCount); i++)
        connections.push_back(std::make_unique<Connection>());
    std::mutex localDisplayMutex;
    std::vector<std::string> failures(ThreadCount);
    std::vector<std::thread> threads;
    threads.reserve(ThreadCount);
    for (int index = 0; index < ThreadCount; index++) {
        threads.emplace_back([&, index] {
            const auto at = static_cast<std::size_t>(index);
            Display* display = *connections.at(oneConnection ? 0 : at);
            GLXFBConfig config = chooseConfig(display, {.alpha = index % 2 == 1});
            std::unique_lock lock(localDisplayMutex);
            GLXContext context = makeContext(gl, display, config);
            const GLXPbuffer drawable = makePbuffer(gl, display, config, Width, Height);
            gl.glXMakeCurrent(display, drawable, context);
            lock.unlock();
            for (int frame = 0; frame < 15 && failures.at(at).empty(); frame++) {
                drawPicture(gl, Width, Height, index + frame);
                gl.glFinish();
                lock.lock();
                gl.glXSwapBuffers(display, drawable);
                gl.glXMakeCurrent(display, None, nullptr);
                const Picture front = readFront(display, config, drawable, Width, Height);
                gl.glXMakeCurrent(display, drawable, context);
                lock.unlock();
                failures.at(at) = difference(front, pictureOf(Width, Height, index + frame), Width);
            }
            lock.lock();
            gl.glXDestroyPbuffer(display, drawable);
            gl.glXMakeCurrent(display, None, nullptr);
            gl.glXDestroyContext(display, context);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const std::string& failure : failures)
        EXPECT_EQ(failure, "");
    for (const auto& connection : connections)
        XSync(*connection, False);
    EXPECT_EQ(errors.count(), 0);
}

TEST(Threads, EightOnOneConnection) {
    swapInThreads(true);
}
TEST(Threads, EightOnConnectionsOfTheirOwn) {
    swapInThreads(false);
}

} // namespace
} // namespace kor::test
