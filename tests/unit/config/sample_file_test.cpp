#include "config/settings.h"

#include "../support/stderr_capture.h"
#include "sandbox.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

using kor::conf::Settings;
using kor::test::Sandbox;
using kor::test::StderrCapture;

namespace {

std::string sampleFile() {
    std::ostringstream text;
    text << std::ifstream(KOR_SOURCE_DIR "/docs/kor-gl.conf").rdbuf();
    return text.str();
}

/// The sample with the '#' taken away in front of every setting (text stands behind a "# ").
std::string uncommented(const std::string& sample) {
    std::istringstream stream(sample);
    std::string all;
    for (std::string line; std::getline(stream, line);)
        all += (line.size() > 1 && line[0] == '#' && line[1] != ' ' ? line.substr(1) : line) + "\n";
    return all;
}

bool sameValues(const Settings& one, const Settings& other) {
    const auto same = [](const auto& a, const auto& b) {
        if constexpr (std::is_same_v<decltype(a.load()), char*>)
            return a.load() == nullptr || b.load() == nullptr ? a.load() == b.load()
                                                              : strcmp(a.load(), b.load()) == 0;
        else
            return a.load() == b.load();
    };
    bool all = true;
#define KOR_SETTING(type, field, key, section, env, def, description)                              \
    all = all && same(one.field, other.field);
#include "config/settings.def"
#undef KOR_SETTING
    return all;
}

} // namespace

TEST(SampleFile, CanBeInstalledAsItIsAndSetsWhatIsShipped) {
    const Sandbox sandbox;
    ASSERT_FALSE(sampleFile().empty());
    Settings expected;
    expected.copybackStrategy = 0;
    expected.freeDrawablesWithoutContext = true;
    ASSERT_FALSE(sameValues(Settings(), expected)) << "the library's own defaults are others";
    sandbox.writeSystem(sampleFile());
    const StderrCapture errors;
    EXPECT_TRUE(sameValues(Settings(), expected));
    EXPECT_EQ(errors.text(), "");
}

TEST(SampleFile, HoldsEverySettingWithItsDefaultOrWhatIsShipped) {
    const Sandbox sandbox;
    const std::string sample = uncommented(sampleFile());
#define KOR_SETTING(type, field, key, section, env, def, description)                              \
    EXPECT_NE(sample.find(std::string("\n") + key + " ="), std::string::npos) << key;
#include "config/settings.def"
#undef KOR_SETTING
    sandbox.writeSystem(sampleFile());
    const Settings asShipped;
    sandbox.writeSystem(sample);
    const StderrCapture errors;
    EXPECT_TRUE(sameValues(Settings(), asShipped));
    EXPECT_EQ(errors.text(), "");
}

TEST(SampleFile, ASettingThatIsUncommentedAndChangedCounts) {
    const Sandbox sandbox;
    std::string sample = sampleFile();
    const std::string line = "#copyback-frame-rate = 30\n";
    ASSERT_NE(sample.find(line), std::string::npos);
    sample.replace(sample.find(line), line.size(), "copyback-frame-rate = 12\n");
    sandbox.writeSystem(sample);
    EXPECT_EQ(Settings().copybackFrameRate, 12);
}
