#include "pipe_text.h"

#include <gmock/gmock.h>

using korrun::Clock;
using korrun::ReadResult;
using namespace std::chrono_literals;

namespace {

Clock::time_point soon() {
    return Clock::now() + 50ms;
}

} // namespace

TEST(KorrunPipeText, LinesArriveOneByOne) {
    korrun::Pipe pipe = korrun::makePipe();
    ASSERT_TRUE(korrun::writeText(pipe.writeEnd.get(), "one\n\ntwo"));
    pipe.writeEnd.close();
    std::string line;
    EXPECT_EQ(korrun::readLine(pipe.readEnd.get(), line, soon()), ReadResult::Line);
    EXPECT_EQ(line, "one");
    EXPECT_EQ(korrun::readLine(pipe.readEnd.get(), line, soon()), ReadResult::Line);
    EXPECT_EQ(line, "");
    EXPECT_EQ(korrun::readLine(pipe.readEnd.get(), line, soon()), ReadResult::Line);
    EXPECT_EQ(line, "two");
    EXPECT_EQ(korrun::readLine(pipe.readEnd.get(), line, soon()), ReadResult::End);
}

TEST(KorrunPipeText, SilenceTimesOut) {
    const korrun::Pipe pipe = korrun::makePipe();
    std::string line;
    const auto begin = Clock::now();
    EXPECT_EQ(korrun::readLine(pipe.readEnd.get(), line, begin + 30ms), ReadResult::TimedOut);
    EXPECT_GE(Clock::now() - begin, 30ms);
}

TEST(KorrunPipeText, ClosedStopPipeInterrupts) {
    const korrun::Pipe pipe = korrun::makePipe();
    korrun::Pipe stop = korrun::makePipe();
    std::string line;
    EXPECT_EQ(korrun::readLine(pipe.readEnd.get(), line, soon(), stop.readEnd.get()),
              ReadResult::TimedOut);
    stop.writeEnd.close();
    EXPECT_EQ(korrun::readLine(pipe.readEnd.get(), line, Clock::now() + 10s, stop.readEnd.get()),
              ReadResult::Interrupted);
}

TEST(KorrunPipeText, WritingToNobodyFailsWithoutASignal) {
    korrun::Pipe pipe = korrun::makePipe();
    pipe.readEnd.close();
    EXPECT_FALSE(korrun::writeText(pipe.writeEnd.get(), "lost\n"));
}
