// A destination buffer that a transfer left behind. The library clears it under the same lock, so a
// test has to put it there.

#include "frames.h"
#include "interposed.h"

#include "framework/wait_until.h"
#include "transport/readback_context.h"

// Members that only the library itself may reach: an explicit instantiation may name them.
namespace {

template <typename Tag, typename Tag::Type Member> struct Reveal {
    friend typename Tag::Type revealed(Tag /*tag*/) { return Member; }
};
struct Destination {
    using Type = char* kor::gl::ReadbackContext::*;
    friend Type revealed(Destination tag);
};
struct ReadbackOf {
    using Type = std::atomic<kor::gl::ReadbackContext*> kor::gl::DrawableInfo::*;
    friend Type revealed(ReadbackOf tag);
};
template struct Reveal<Destination, &kor::gl::ReadbackContext::destinationBuffer_>;
template struct Reveal<ReadbackOf, &kor::gl::DrawableInfo::readbackContext>;

class HalfDoneTransfer : public Frames {};

} // namespace

TEST_F(HalfDoneTransfer, IsWarnedOfAndTheFrameIsPaintedAllTheSame) {
    begin(64, 48);
    ASSERT_TRUE(swapAndPaint());
    letPaintsArrive();
    char left = 0;
    const kor::gl::DrawableRef current = record();
    kor::gl::ReadbackContext* context = ((*current).*revealed(ReadbackOf{})).load();
    context->*revealed(Destination{}) = &left;
    markLog();
    ASSERT_TRUE(swapAndPaint());
    letPaintsArrive();
    EXPECT_EQ(timesSaid('W', "ReadbackContext::copyToAppDisplay",
                        "Query buffer non-emptied - possible severe corruption ongoing"),
              1U);
    EXPECT_TRUE(kor::test::waitUntil([&] { return !sayings("XImagePainter::draw").empty(); }));
    ASSERT_TRUE(swapAndPaint());
    letPaintsArrive();
    EXPECT_EQ(timesSaid('W', "ReadbackContext::copyToAppDisplay",
                        "Query buffer non-emptied - possible severe corruption ongoing"),
              1U);
}
