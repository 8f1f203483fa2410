#include "local_display_test.h"

#include <set>

namespace kor::test {
namespace {

/// An application's window server and a local display: two servers that number alike.
class IdRange : public testing::Test {
  protected:
    std::set<XID> windowIds(int count) {
        std::set<XID> ids;
        for (int i = 0; i < count; i++)
            ids.insert(XCreateSimpleWindow(application,
                                           DefaultRootWindow(static_cast<Display*>(application)), 0,
                                           0, 9, 9, 0, 0, 0));
        return ids;
    }
    static std::set<XID> pbufferIds(const GlTable& gl, Display* local, int count) {
        GLXFBConfig config = chooseConfig(local, {});
        std::set<XID> ids;
        for (int i = 0; i < count; i++)
            ids.insert(makePbuffer(gl, local, config, 4, 4));
        EXPECT_FALSE(ids.contains(None));
        return ids;
    }
    static int shared(const std::set<XID>& a, const std::set<XID>& b) {
        int count = 0;
        for (const XID id : a)
            count += b.contains(id) ? 1 : 0;
        return count;
    }

    XServer applicationServer{localServer()};
    XServer gpuServer{localServer()};
    Connection application{false, applicationServer.name()}; // first client there
};

TEST_F(IdRange, WithoutTheAdapterAWindowAndAPbufferBearTheSameId) {
    const Connection local(false, gpuServer.name()); // first client here
    EXPECT_GT(shared(windowIds(200), pbufferIds(directGl(), local, 50)), 0);
}

TEST_F(IdRange, WithTheAdapterTheyNeverDo) {
    const Connection local(true, gpuServer.name());
    const std::set<XID> windows = windowIds(200);
    const std::set<XID> pbuffers = pbufferIds(adaptedGl(), local, 50);
    EXPECT_EQ(shared(windows, pbuffers), 0);
    // Not by luck: every local id lies above every id of an application's first million.
    EXPECT_LT(*windows.rbegin() + 900000, *pbuffers.begin());
}

TEST_F(IdRange, EveryKindOfLocalIdMoves) {
    const Connection local(true, gpuServer.name());
    Display* display = local;
    const XID base = *windowIds(1).begin() & ~XID{0xfffff};
    EXPECT_GE(XCreatePixmap(display, DefaultRootWindow(display), 4, 4, 24), base + 0x100000);
    EXPECT_GE(XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 4, 4, 0, 0, 0),
              base + 0x100000);
}

} // namespace
} // namespace kor::test
