#include "application_display.h"
#include "check.h"
#include "doctor_options.h"
#include "failure.h"
#include "gpu_display.h"
#include "installation_checks.h"
#include "program_checks.h"
#include "quiet_library.h"
#include "rendering.h"
#include "setting_checks.h"
#include "watch.h"

#include <cstdio>
#include <cstdlib>

using namespace kordoctor;

namespace {

std::vector<Check> makeChecks(const Options& options) {
    std::vector<Check> checks;
    Facts facts;
    const auto make = [&](const Section& section) {
        const std::vector<Check> made = runSection(section, facts);
        checks.insert(checks.end(), made.begin(), made.end());
    };
    const std::vector<SettingsFile> files = readSettingsFiles();
    const std::vector<SettingValue> settings = readSettings(files);
    keepLibraryQuiet();
    const korrun::Installation installation = korrun::findInstallation();
    make(installationSection(installation));
    make(applicationDisplaySection());
    make(gpuDisplaySection(settings, facts));
    make(renderingSection(facts));
    if (!options.program.empty())
        make(programSection(options.program[0], installation));
    make(settingsSection(files, settings));
    return checks;
}

int run(const Options& options) {
    const std::vector<Check> checks = makeChecks(options);
    const std::string report = options.json ? asJson(checks) : asText(checks);
    if (std::fwrite(report.data(), 1, report.size(), stdout) != report.size() ||
        std::fflush(stdout) != 0) {
        std::perror("kordoctor: the report cannot be written");
        return statusUsage;
    }
    return exitStatusOf(worstOf(checks));
}

} // namespace

int main(int count, char** arguments) {
    try {
        const Options options = parseOptions({arguments + 1, arguments + count});
        if (options.help || options.version) {
            std::fputs(options.help ? helpText() : versionText(), stdout);
            return EXIT_SUCCESS;
        }
        if (options.watch)
            return watchProcess(*options.watch, options.seconds, options.json);
        return run(options);
    } catch (const korrun::Failure& failure) {
        std::fprintf(stderr, "kordoctor: %s\n", failure.what());
        return failure.exitStatus();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "kordoctor: %s\n", failure.what());
        return statusUsage;
    }
}
