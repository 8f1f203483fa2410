#include "session.h"

namespace kor::e2e {
namespace {

test::XServer::Options serverOptions(test::XServer::Kind kind, int width, int height) {
    test::XServer::Options options;
    options.kind = kind;
    options.width = width;
    options.height = height;
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

Session::Session(Road road, int width, int height)
    : m_road(road), m_application(serverOptions(road == Road::System ? test::XServer::Kind::Xvfb
                                                                     : test::XServer::Kind::Xkor,
                                                width, height)) {
    if (road != Road::System)
        m_local.emplace(serverOptions(test::XServer::Kind::Xvfb, 640, 480));
}

test::Command Session::command(const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment) const {
    test::Command command;
    command.arguments = arguments;
    forgetOwnSettings(command);
    command.environment["DISPLAY"] = m_application.name();
    if (m_road != Road::System) {
        command.environment["KOR_GL_DISPLAY"] = m_local->name();
        command.environment["LD_LIBRARY_PATH"] = libraryPath(m_road);
        command.environment["KOR_GL_PRINT_VERSION"] = "1"; // see usedLibrary
    }
    for (const std::string& entry : environment) {
        const std::size_t equals = entry.find('=');
        command.environment[entry.substr(0, equals)] = entry.substr(equals + 1);
    }
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
