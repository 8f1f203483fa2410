#include "x_server.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

XServer::XServer() : owner_(getpid()) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM); // however the test ends
        close(ends[0]);
        const std::string descriptor = std::to_string(ends[1]);
        execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-screen", "0", "320x240x24",
               "-nolisten", "tcp", nullptr);
        _exit(127);
    }
    close(ends[1]);
    std::string number;
    char byte = 0;
    pollfd waiting{ends[0], POLLIN, 0};
    while (poll(&waiting, 1, 30000) == 1 && read(ends[0], &byte, 1) == 1 && byte != '\n')
        number += byte;
    close(ends[0]);
    EXPECT_EQ(byte, '\n') << "Xvfb does not start; is the package xvfb installed?";
    name_ = ":" + number;
}

XServer::~XServer() {
    if (process_ > 0 && getpid() == owner_) {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
}

void XServer::end() {
    kill(process_, SIGTERM);
    const std::string socket = "/tmp/.X11-unix/X" + name_.substr(1);
    for (int i = 0; i < 1000 && access(socket.c_str(), F_OK) == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}
