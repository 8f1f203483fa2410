// How a child is ended that may be stopped, deaf, or without a group of its own.
#include "children.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;
using korsession::endChild;

namespace {

enum class Kind { Plain, Stopped, Deaf, WithoutGroup };

// A child that is of this kind by the time that it is returned.
pid_t startChild(Kind kind) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (kind != Kind::WithoutGroup)
            setpgid(0, 0);
        if (kind == Kind::Deaf)
            signal(SIGTERM, SIG_IGN);
        alarm(60);
        close(ready[0]);
        close(ready[1]);
        if (kind == Kind::Stopped)
            raise(SIGSTOP);
        while (true)
            pause();
    }
    close(ready[1]);
    char nothing = 0;
    EXPECT_EQ(read(ready[0], &nothing, 1), 0);
    close(ready[0]);
    if (kind == Kind::Stopped) {
        EXPECT_EQ(waitpid(child, nullptr, WUNTRACED), child);
    }
    return child;
}

void expectGone(pid_t child) {
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

} // namespace

TEST(KorsessionChildren, AskingIsEnoughForOneThatListens) {
    for (const Kind kind : {Kind::Plain, Kind::Stopped, Kind::WithoutGroup}) {
        const pid_t child = startChild(kind);
        EXPECT_TRUE(endChild(child, 30s)) << static_cast<int>(kind);
        expectGone(child);
    }
}

TEST(KorsessionChildren, OneThatDoesNotListenIsKilledInTime) {
    const pid_t child = startChild(Kind::Deaf);
    EXPECT_FALSE(endChild(child, 100ms));
    expectGone(child);
}
