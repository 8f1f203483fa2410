#pragma once

#include "installation.h"
#include "registry.h"

#include <optional>
#include <string>
#include <vector>

namespace korsession {

// What a session consists of.
struct SessionPlan {
    korrun::Installation installation;
    std::string xvfb;      // path of the local display's server; empty: glDisplay is used
    std::string glDisplay; // display that drives the GPU; empty: a private one is started
    std::string size;      // WIDTHxHEIGHT
    std::string display;   // ":N"; empty: a free one
    std::vector<std::string> viewing; // arguments of Xkor that let viewers in
    std::string passwordFile;         // told to whoever attaches; empty: none of ours
    std::string logFolder;
    std::vector<std::string> command;
};

// A session has two keepers, one inside the other, which lead a session of processes of their own.
// The inner one starts the servers and the command, waits until one of them ends or somebody asks,
// and takes everything down. Should it die, the outer one inherits all of its processes and ends
// them; should the outer one die, the inner one hears of it and takes everything down.
//
// To be run in a process that was forked for it; never returns. Answers by lines of text in
// `answers`: "ready" or "failed" and the message.
[[noreturn]] void runOuterKeeper(const SessionPlan& plan, const SessionFolder& folder, int answers);

} // namespace korsession
