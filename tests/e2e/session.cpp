#include "session.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace kor::e2e {
namespace {

test::XServer::Options serverOptions(test::XServer::Kind kind, int width, int height,
                                     const std::vector<std::string>& arguments = {}) {
    test::XServer::Options options;
    options.kind = kind;
    options.width = width;
    options.height = height;
    options.arguments = arguments;
    return options;
}

// Settings of whoever runs the tests must not reach the clients.
void forgetOwnSettings(test::Command& command) {
    for (const char* const name :
         {"KOR_GL_DISPLAY", "KOR_GL_VERBOSE", "KOR_GL_LOG_LEVEL", "KOR_GL_LOG_DIR",
          "KOR_GL_COPYBACK_STRATEGY", "KOR_GL_COPYBACK_FRAME_RATE", "KOR_GL_MULTISAMPLE",
          "LD_PRELOAD", "LD_LIBRARY_PATH", "LIBGL_ALWAYS_SOFTWARE", "__GLX_VENDOR_LIBRARY_NAME"})
        command.environment[name] = std::nullopt;
}

// The display of a real GPU that is to render, where the one who runs the tests names one; else
// empty and the tests start their own.
std::string givenLocalDisplay() {
    const char* const name = std::getenv("KOR_TEST_LOCAL_DISPLAY");
    return name ? name : "";
}

// What the one who runs the tests adds to every program's environment: NAME=VALUE, with blanks
// between. (A server that does not name its driver's GL vendor library needs the name here.)
std::vector<std::string> givenEnvironment() {
    const char* const text = std::getenv("KOR_TEST_ENVIRONMENT");
    std::istringstream words(text ? text : "");
    std::vector<std::string> entries;
    for (std::string word; words >> word;)
        entries.push_back(word);
    return entries;
}

void addEntry(test::Command& command, const std::string& entry) {
    const std::size_t equals = entry.find('=');
    if (equals == std::string::npos)
        throw std::invalid_argument("not NAME=VALUE: " + entry);
    command.environment[entry.substr(0, equals)] = entry.substr(equals + 1);
}

std::string libraryPath(Road road) {
    switch (road) {
    case Road::Library:
        return test::buildLibrary("kor");
    case Road::Vendor:
        return test::buildLibrary("");
    default:
        return test::buildLibrary("kor") + ":" + test::buildLibrary("");
    }
}

} // namespace

Session::Session(Road road, int width, int height, const std::vector<std::string>& arguments)
    : m_road(road), m_application(serverOptions(road == Road::System ? test::XServer::Kind::Xvfb
                                                                     : test::XServer::Kind::Xkor,
                                                width, height, arguments)) {
    m_localName = givenLocalDisplay();
    if (road == Road::System || !m_localName.empty())
        return;
    m_local.emplace(serverOptions(test::XServer::Kind::Xvfb, 640, 480));
    m_localName = m_local->name();
}

test::Command Session::command(const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment) const {
    test::Command command;
    command.arguments = arguments;
    forgetOwnSettings(command);
    command.environment["DISPLAY"] = m_application.name();
    if (m_road != Road::System) {
        command.environment["KOR_GL_DISPLAY"] = m_localName;
        command.environment["LD_LIBRARY_PATH"] = libraryPath(m_road);
        command.environment["KOR_GL_PRINT_VERSION"] = "1"; // see usedLibrary
    }
    for (const std::string& entry : givenEnvironment())
        addEntry(command, entry);
    for (const std::string& entry : environment)
        addEntry(command, entry);
    return command;
}

test::Command Session::client(const std::vector<std::string>& arguments,
                              const std::vector<std::string>& environment) const {
    test::Command result = command(arguments, environment);
    result.arguments.front() = std::string(KOR_CLIENT_BIN_DIR "/") + arguments.front();
    return result;
}

bool usedLibrary(const test::CommandResult& result) {
    return result.errors.find("TESSERA KOR-GL ") != std::string::npos;
}

std::string summary(const test::CommandResult& result) {
    std::string text = result.timedOut ? std::string("it had to be killed: its time was over")
                                       : "status " + std::to_string(result.status);
    constexpr std::size_t kMost = 20000; // a debug log is long; its end tells most
    const auto tail = [](const std::string& whole) {
        return whole.size() > kMost ? "..." + whole.substr(whole.size() - kMost) : whole;
    };
    text += "\n--- standard output\n" + tail(result.output);
    text += "\n--- standard error\n" + tail(result.errors);
    return text;
}

} // namespace kor::e2e
