#pragma once

#include <string>
#include <vector>

namespace kordoctor {

enum class Verdict {
    Ok,
    Skipped, // could not be tried, because of another check that says so
    Warning, // works, but not as people expect
    Broken   // no frame will be seen
};

// One thing that was looked at.
struct Check {
    std::string id;    // stays the same from version to version: for programs
    std::string title; // for people
    Verdict verdict = Verdict::Skipped;
    std::string result; // what was found
    std::string advice; // what to do; empty when all is well
};

// "ok", "skipped", "warning" or "broken".
const char* nameOf(Verdict status);

// The worst of them; Ok for none. A skipped check does not count: what caused it does.
Verdict worstOf(const std::vector<Check>& checks);

// 0 all well, 1 warnings, 2 broken.
int exitStatusOf(Verdict worst);

// One line per check.
std::string asText(const std::vector<Check>& checks);
// One JSON object.
std::string asJson(const std::vector<Check>& checks);

// The text between quotation marks, as JSON has it. Bytes that are no UTF-8 become question marks.
std::string jsonString(const std::string& text);

// The text on one line, without control characters.
std::string oneLine(const std::string& text);

} // namespace kordoctor
