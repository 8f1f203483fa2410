#include "setting_checks.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

extern char** environ;

namespace kordoctor {

namespace {

constexpr unsigned long leastLogSpace = 1 << 20; // bytes

using Files = std::vector<SettingsFile>;
using Values = std::vector<SettingValue>;

std::string join(const std::vector<std::string>& texts, const char* between) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : between) + text;
    return joined;
}

// Entries that no setting reads.
std::vector<std::string> strangers(const SettingsFile& file, const Values& settings) {
    std::vector<std::string> found;
    for (const SettingsFile::Entry& entry : file.entries) {
        const auto hasKey = [&](const SettingValue& setting) {
            return strcasecmp(setting.key, entry.key.c_str()) == 0;
        };
        const auto known = std::find_if(settings.begin(), settings.end(), hasKey);
        if (known != settings.end() && strcasecmp(known->section, entry.section.c_str()) == 0)
            continue;
        found.push_back(file.path + ", line " + std::to_string(entry.line) + ": " +
                        (known == settings.end()
                             ? entry.key + " is no setting"
                             : entry.key + " belongs into section [" + known->section +
                                   "], it stands in [" + entry.section + "]"));
    }
    return found;
}

void checkFiles(Findings& findings, const Files& files, const Values& settings) {
    findings.begin("settings-files");
    std::vector<std::string> names;
    std::vector<std::string> broken;
    std::vector<std::string> odd;
    for (const SettingsFile& file : files) {
        names.push_back(file.path + " (" + file.whose + ")");
        if (!file.problem.empty())
            broken.push_back(file.path +
                             (file.problemLine > 0
                                  ? ", line " + std::to_string(file.problemLine) + ": this line "
                                  : " ") +
                             file.problem);
        if (file.ignored)
            broken.push_back(file.path + " is not used either, because of that system file");
        for (const std::string& stranger : strangers(file, settings))
            odd.push_back(stranger);
    }
    if (!broken.empty())
        findings.broken(join(broken, "; "),
                        "the library ignores such a file as a whole: correct it, let it be a "
                        "readable file of yours or of root's, or remove it");
    else if (!odd.empty())
        findings.warning(join(odd, "; "),
                         "such lines have no effect: kor-gl.conf(5) lists the settings");
    else
        findings.ok(names.empty() ? "there is none" : join(names, ", "));
}

void checkVariables(Findings& findings, const Values& settings) {
    findings.begin("settings-variables");
    // Read by others than the settings' reader.
    const std::vector<std::string> others = {"KOR_GL_USER_CONFDIR", "KOR_GL_STATS"};
    std::vector<std::string> unknown;
    size_t known = 0;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        const std::string name = text.substr(0, text.find('='));
        if (!name.starts_with("KOR_GL_") ||
            std::find(others.begin(), others.end(), name) != others.end())
            continue;
        const bool isSetting = std::any_of(settings.begin(), settings.end(),
                                           [&](const auto& s) { return name == s.variable; });
        if (isSetting)
            ++known;
        else
            unknown.push_back(name);
    }
    if (unknown.empty())
        findings.ok(known == 0 ? "no KOR_GL_ variable is set"
                               : std::to_string(known) + " set, all known");
    else
        findings.warning(join(unknown, ", ") + (unknown.size() == 1 ? " is" : " are") +
                             " set, but no setting has such a variable",
                         "correct the name: kor-gl.conf(5) lists the variables");
}

// What is wrong with a value that can be read, as the end of a sentence; empty when nothing is.
std::string meaningless(const SettingValue& setting) {
    const std::string key = setting.key;
    if (key == "level") {
        for (const char* word : {"error", "warning", "info", "debug"})
            if (strcasecmp(setting.value.c_str(), word) == 0)
                return "";
        return "is none of error, warning, info and debug: warning is used";
    }
    if (key == "copyback-frame-rate" && atoi(setting.value.c_str()) < 1)
        return "means one frame a second";
    if (key == "no-readback" && setting.value == "true")
        return "means that no frame is shown at all";
    return "";
}

void checkSetting(Findings& findings, const SettingValue& setting) {
    findings.begin(std::string("setting.") + setting.key, std::string("setting ") + setting.key);
    const std::string result =
        (setting.isSet ? setting.value : "none") + " (" + setting.source + ")";
    const std::string odd = meaningless(setting);
    const std::string type = setting.type == "bool"  ? "true, false, 1 or 0"
                             : setting.type == "int" ? "a whole number"
                                                     : "a text of fewer than 1024 characters";
    if (!setting.passedOver.empty())
        findings.warning(result + "; passed over: " + join(setting.passedOver, ", "),
                         "such a value is ignored without a word: it has to be " + type);
    else if (!odd.empty())
        findings.warning(result + ": this " + odd, "correct it, or take it out");
    else
        findings.ok(result);
}

// Why no file can be made there; empty when one can.
std::string cannotWriteIn(const std::string& folder) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0)
        return strerror(errno);
    if (!S_ISDIR(status.st_mode))
        return "it is no folder";
    std::string name = folder + "/kordoctor.XXXXXX";
    const int file = mkstemp(name.data());
    if (file < 0)
        return strerror(errno);
    const bool written = write(file, "test\n", 5) == 5;
    const int error = errno;
    close(file);
    unlink(name.c_str());
    return written ? "" : strerror(error);
}

void checkLogDirectory(Findings& findings, const Values& settings) {
    findings.begin("log-directory");
    const SettingValue& directory = settingOf(settings, "directory");
    if (!directory.isSet) {
        findings.ok("none is set: the log goes to standard error");
        return;
    }
    const std::string problem = cannotWriteIn(directory.value);
    if (!problem.empty()) {
        findings.warning("no log file can be made in " + directory.value + ": " + problem,
                         "the log goes to standard error instead: make the folder and let every "
                         "user write there, or correct the setting \"directory\" (from " +
                             directory.source + ")");
        return;
    }
    struct statvfs space {};
    if (statvfs(directory.value.c_str(), &space) == 0 &&
        space.f_bavail * space.f_frsize < leastLogSpace)
        findings.warning("the disk of " + directory.value + " is full",
                         "records of the log are lost: make room there");
    else
        findings.ok(directory.value + " can be written to");
}

void checkSingleThreaded(Findings& findings) {
    findings.begin("gl-single-threaded");
    if (getenv("__GL_SINGLE_THREADED") != nullptr)
        findings.broken("the variable __GL_SINGLE_THREADED is set: the library ends every program",
                        "unset __GL_SINGLE_THREADED; with it the driver serves one thread only, "
                        "and frames are read by another");
    else
        findings.ok("not set");
}

} // namespace

Section settingsSection(const std::vector<SettingsFile>& files,
                        const std::vector<SettingValue>& settings) {
    Section section;
    section.checks = {{"gl-single-threaded", "__GL_SINGLE_THREADED"},
                      {"log-directory", "log directory"},
                      {"settings-files", "settings files"},
                      {"settings-variables", "settings variables"}};
    section.examine = [files, settings](Findings& findings) {
        checkSingleThreaded(findings);
        checkLogDirectory(findings, settings);
        checkFiles(findings, files, settings);
        checkVariables(findings, settings);
        for (const SettingValue& setting : settings)
            checkSetting(findings, setting);
    };
    return section;
}

} // namespace kordoctor
