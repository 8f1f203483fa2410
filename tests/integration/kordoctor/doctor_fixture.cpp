#include "doctor_fixture.h"

#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace kor::test {

namespace files = std::filesystem;

namespace {

/// The text of a member on a line of JSON; every member is a text there.
std::string memberOf(const std::string& line, const std::string& name) {
    const std::string key = "\"" + name + "\": \"";
    const size_t begin = line.find(key);
    std::string text;
    if (begin == std::string::npos)
        return text;
    for (size_t at = begin + key.size(); at < line.size() && line[at] != '"'; ++at) {
        if (line[at] == '\\')
            ++at;
        text += line[at];
    }
    return text;
}

} // namespace

Finding Diagnosis::operator[](const std::string& id) const {
    const size_t at = output.find("{\"id\": \"" + id + "\"");
    if (at == std::string::npos)
        return {};
    const std::string line = output.substr(at, output.find('\n', at) - at);
    return {memberOf(line, "status"), memberOf(line, "result"), memberOf(line, "advice")};
}

void DoctorTest::SetUp() {
    m_folder = testing::TempDir() + "kordoctor-test.XXXXXX";
    ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
    // The same in what kordoctor prints.
    m_folder = files::canonical(m_folder);
}

void DoctorTest::TearDown() {
    files::remove_all(m_folder);
}

std::string DoctorTest::put(const std::string& name, const std::string& text) const {
    files::create_directories(files::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
}

Environment DoctorTest::plainEnvironment() const {
    Environment environment = {{"HOME", m_folder},
                               {"XAUTHORITY", XServer::authorityFile()},
                               {"XDG_CONFIG_HOME", std::nullopt},
                               {"DISPLAY", std::nullopt},
                               {"LD_LIBRARY_PATH", std::nullopt},
                               {"KOR_FRONT_SYSTEM_GL", std::nullopt},
                               {"KOR_FRONT_LOCAL_VENDOR", std::nullopt},
                               {"__GL_SINGLE_THREADED", std::nullopt}};
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (std::string(*variable).starts_with("KOR_GL_"))
            environment[std::string(*variable).substr(0, std::string(*variable).find('='))] =
                std::nullopt;
    return environment;
}

Diagnosis DoctorTest::diagnose(const Environment& environment,
                               const std::vector<std::string>& arguments,
                               const std::vector<std::string>& before) const {
    Command command;
    command.arguments = before;
    command.arguments.push_back(buildProgram("kordoctor"));
    command.arguments.emplace_back("--json");
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    command.environment = plainEnvironment();
    for (const auto& [name, value] : environment)
        command.environment[name] = value;
    command.folder = m_folder;
    const CommandResult result = runCommand(command, std::chrono::seconds(100));
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.errors, "");
    return {result.status, result.output, result.errors};
}

Diagnosis DoctorTest::diagnoseBlindly(Environment environment,
                                      const std::vector<std::string>& arguments) const {
    environment.try_emplace("KOR_GL_DISPLAY", noDisplay);
    return diagnose(environment, arguments);
}

Diagnosis SessionTest::diagnoseSession(Environment environment,
                                       const std::vector<std::string>& arguments,
                                       const std::vector<std::string>& before) const {
    environment.try_emplace("DISPLAY", m_session.name());
    return diagnose(environment, arguments, before);
}

XServer SessionTest::startLocal(const std::vector<std::string>& arguments) {
    return XServer(
        {.kind = XServer::Kind::Xvfb, .width = 320, .height = 240, .arguments = arguments});
}

XServer SessionTest::startSession(const std::string& glDisplay,
                                  const std::vector<std::string>& arguments) {
    return XServer({.kind = XServer::Kind::Xkor,
                    .width = 320,
                    .height = 240,
                    .glDisplay = glDisplay,
                    .arguments = arguments});
}

std::vector<std::string> inOwnNamespace(const std::string& option) {
    if (getuid() == 0)
        return {"unshare", option, "--"};
    return {"unshare", "--map-root-user", option, "--"};
}

} // namespace kor::test
