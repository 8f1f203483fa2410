#include "check.h"

#include <algorithm>
#include <cstdio>

namespace kordoctor {

namespace {

// The length of the well-formed UTF-8 sequence at `at`; 0 when there is none.
size_t sequenceLength(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(at);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0U) != 0x80U)
            return 0;
    // Overlong forms, surrogates and what lies beyond the last character.
    if ((first == 0xE0 && byte(at + 1) < 0xA0) || (first == 0xED && byte(at + 1) > 0x9F) ||
        (first == 0xF0 && byte(at + 1) < 0x90) || (first == 0xF4 && byte(at + 1) > 0x8F))
        return 0;
    return length;
}

} // namespace

const char* nameOf(Verdict status) {
    switch (status) {
    case Verdict::Ok:
        return "ok";
    case Verdict::Skipped:
        return "skipped";
    case Verdict::Warning:
        return "warning";
    case Verdict::Broken:
        return "broken";
    }
    return "unknown";
}

Verdict worstOf(const std::vector<Check>& checks) {
    Verdict worst = Verdict::Ok;
    for (const Check& check : checks)
        if (check.verdict != Verdict::Skipped)
            worst = std::max(worst, check.verdict);
    return worst;
}

int exitStatusOf(Verdict worst) {
    return worst == Verdict::Broken ? 2 : worst == Verdict::Warning ? 1 : 0;
}

std::string oneLine(const std::string& text) {
    std::string line;
    for (const char character : text) {
        const bool control = static_cast<unsigned char>(character) < ' ' || character == 127;
        if (!control)
            line += character;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    while (line.ends_with(' '))
        line.pop_back();
    return line;
}

std::string asText(const std::vector<Check>& checks) {
    size_t widest = 0;
    for (const Check& check : checks)
        widest = std::max(widest, check.title.size());
    std::string text;
    for (const Check& check : checks) {
        // What needs attention is in capitals.
        std::string word = nameOf(check.verdict);
        if (check.verdict >= Verdict::Warning)
            for (char& letter : word)
                letter = static_cast<char>(letter - 'a' + 'A');
        word.resize(9, ' ');
        std::string title = check.title + ":";
        title.resize(widest + 2, ' ');
        text += word + title + oneLine(check.result);
        if (!check.advice.empty())
            text += " -> " + oneLine(check.advice);
        text += "\n";
    }
    return text;
}

std::string jsonString(const std::string& text) {
    std::string json = "\"";
    for (size_t at = 0; at < text.size();) {
        const size_t length = sequenceLength(text, at);
        const auto byte = static_cast<unsigned char>(text[at]);
        if (length == 0) {
            json += '?';
        } else if (byte == '"' || byte == '\\') {
            json += '\\';
            json += text[at];
        } else if (byte < ' ' || byte == 127) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", byte);
            json += escape;
        } else {
            json.append(text, at, length);
        }
        at += std::max<size_t>(length, 1);
    }
    return json + "\"";
}

std::string asJson(const std::vector<Check>& checks) {
    const Verdict worst = worstOf(checks);
    std::string json = "{\n  \"version\": " + jsonString(KOR_VERSION) +
                       ",\n  \"status\": " + jsonString(nameOf(worst)) +
                       ",\n  \"exitStatus\": " + std::to_string(exitStatusOf(worst)) +
                       ",\n  \"checks\": [";
    const char* separator = "\n";
    for (const Check& check : checks) {
        json += separator;
        json += "    {\"id\": " + jsonString(check.id) + ", \"title\": " + jsonString(check.title) +
                ", \"status\": " + jsonString(nameOf(check.verdict)) +
                ", \"result\": " + jsonString(check.result) +
                ", \"advice\": " + jsonString(check.advice) + "}";
        separator = ",\n";
    }
    return json + "\n  ]\n}\n";
}

} // namespace kordoctor
