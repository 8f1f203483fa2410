#include "fixture.h"

#include "framework/wait_until.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <unistd.h>

namespace {

void* openFake() {
    void* handle = dlopen(KOR_FAKE_GL_PATH, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        abort();
    }
    return handle;
}

std::string makeDirectory() {
    char name[] = "/tmp/kor-library-test-XXXXXX";
    if (mkdtemp(name) == nullptr)
        abort();
    return name;
}

} // namespace

Library::Library() : handle(openFake()), gl(fake::controls(handle)), directory(makeDirectory()) {
    gl.reset();
    set("HOME", directory.c_str());
    unsetenv("XDG_CONFIG_HOME");
    unsetenv("__GL_SINGLE_THREADED");
    set("KOR_GL_LOG_DIR", directory.c_str());
    set("KOR_GL_LOG_LEVEL", "debug");
    if (chdir(directory.c_str()) != 0)
        abort();
}

Library::~Library() {
    if (HasFailure()) {
        for (const LogLine& line : readLog(directory))
            fprintf(stderr, "log: %ld %s\n", line.thread, line.text().c_str());
        for (const fake::Call& call : gl.calls())
            fprintf(stderr, "call: %d %s\n", call.thread, call.text.c_str());
    }
    gl.reset(); // the handlers refer to the test
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

void Library::set(const char* variable, const char* value) {
    setenv(variable, value, 1);
}

void Library::start() {
    kor_init(handle);
}

std::vector<LogLine> Library::log() const {
    std::vector<LogLine> lines = readLog(directory);
    lines.erase(lines.begin(), lines.begin() + static_cast<long>(std::min(logMark_, lines.size())));
    return lines;
}

std::vector<std::string> Library::logTexts() const {
    std::vector<std::string> texts;
    for (const LogLine& line : log())
        texts.push_back(line.text());
    return texts;
}

void Library::markLog() {
    logMark_ = readLog(directory).size();
}

size_t Library::timesLogged(const std::string& text) const {
    size_t times = 0;
    for (const LogLine& line : log())
        times += line.text() == text ? 1 : 0;
    return times;
}

bool Library::logged(const std::string& text) const {
    return timesLogged(text) != 0;
}

namespace {

/// "kor_init" for "void kor_init(void*)", "Copyback::stop" for a member, so that tests need not
/// spell out signatures.
bool isOf(const LogLine& line, const std::string& function) {
    const size_t place = line.function.find(function + "(");
    return place != std::string::npos && place != 0 &&
           (line.function[place - 1] == ' ' || line.function[place - 1] == ':');
}

} // namespace

bool Library::said(char level, const std::string& function, const std::string& message) const {
    return timesSaid(level, function, message) != 0;
}

size_t Library::timesSaid(char level, const std::string& function,
                          const std::string& message) const {
    size_t times = 0;
    for (const LogLine& line : log())
        times += line.level == level && line.message == message && isOf(line, function) ? 1 : 0;
    return times;
}

std::vector<std::string> Library::sayings(const std::string& function) const {
    std::vector<std::string> messages;
    for (const LogLine& line : log())
        if (isOf(line, function))
            messages.push_back(line.message);
    return messages;
}

bool Library::waitForLog(const std::string& text) const {
    return kor::test::waitUntil([&] { return logged(text); });
}
