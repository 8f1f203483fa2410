#include "terminal.h"

#include <csignal>
#include <unistd.h>

namespace korrun {

namespace {

// A process outside the foreground group is stopped when it moves the terminal, unless it blocks
// the signal that would stop it.
void makeForeground(pid_t group) {
    sigset_t stopping;
    sigset_t before;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTTOU);
    sigprocmask(SIG_BLOCK, &stopping, &before);
    tcsetpgrp(STDIN_FILENO, group);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

Terminal::Terminal()
    : m_ownGroup(getpgrp()), m_ours(isatty(STDIN_FILENO) && tcgetpgrp(STDIN_FILENO) == m_ownGroup) {
}

void Terminal::give(pid_t group) {
    if (!m_ours)
        return;
    // Sent to the background by the shell meanwhile, korrun leaves the terminal alone.
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    if (foreground == m_ownGroup)
        makeForeground(group);
    m_given = foreground == m_ownGroup || foreground == group;
}

void Terminal::takeBack() {
    if (!m_given)
        return;
    makeForeground(m_ownGroup);
    m_given = false;
}

} // namespace korrun
