#include "arguments.h"

#include <cstdio>

namespace fake {

namespace {

std::string hexadecimal(unsigned long long value) {
    char text[32];
    snprintf(text, sizeof(text), "0x%llx", value);
    return text;
}

// The constants that the library passes.
const std::map<unsigned, const char*>& constants() {
#define CONSTANT(name)                                                                             \
    { name, #name }
    static const std::map<unsigned, const char*> table = {
        CONSTANT(GL_TEXTURE_RECTANGLE),
        CONSTANT(GL_TEXTURE_MIN_FILTER),
        CONSTANT(GL_TEXTURE_MAG_FILTER),
        CONSTANT(GL_TEXTURE0),
        CONSTANT(GL_RGBA),
        CONSTANT(GL_RGBA8),
        CONSTANT(GL_BGRA),
        CONSTANT(GL_UNSIGNED_BYTE),
        CONSTANT(GL_FRAMEBUFFER),
        CONSTANT(GL_FRAMEBUFFER_BINDING),
        CONSTANT(GL_COLOR_ATTACHMENT0),
        CONSTANT(GL_FRAGMENT_SHADER),
        CONSTANT(GL_VERTEX_SHADER),
        CONSTANT(GL_PACK_ALIGNMENT),
        CONSTANT(GL_PACK_ROW_LENGTH),
        CONSTANT(GL_PACK_SKIP_PIXELS),
        CONSTANT(GL_PACK_SKIP_ROWS),
        CONSTANT(GL_DEPTH_TEST),
        CONSTANT(GL_DITHER),
        CONSTANT(GL_FRONT_LEFT),
        CONSTANT(GL_FRONT_RIGHT),
        CONSTANT(GL_BACK_LEFT),
        CONSTANT(GL_BACK_RIGHT),
        CONSTANT(GL_FRONT),
        CONSTANT(GL_BACK),
        CONSTANT(GL_LEFT),
        CONSTANT(GL_RIGHT),
        CONSTANT(GL_FRONT_AND_BACK),
        CONSTANT(GL_RENDER_MODE),
        CONSTANT(GL_RENDER),
        CONSTANT(GL_FEEDBACK),
        CONSTANT(GL_SELECT),
        CONSTANT(GL_DRAW_BUFFER),
        CONSTANT(GL_SAMPLES_PASSED),
        CONSTANT(GL_QUERY_RESULT),
        CONSTANT(GL_SYNC_GPU_COMMANDS_COMPLETE),
        CONSTANT(GL_DEBUG_OUTPUT_SYNCHRONOUS),
        CONSTANT(GL_DONT_CARE),
        CONSTANT(GL_COLOR),
        CONSTANT(GL_DEPTH_BUFFER_BIT),
        CONSTANT(GL_COLOR_BUFFER_BIT),
    };
#undef CONSTANT
    return table;
}

} // namespace

std::string enumText(unsigned value) {
    if (value < 0x100)
        return std::to_string(value);
    const auto found = constants().find(value);
    return found == constants().end() ? hexadecimal(value) : found->second;
}

std::string pointerText(const void* value) {
    if (value == nullptr)
        return "null";
    const std::string name = State::instance().nameOf(reinterpret_cast<uintptr_t>(value));
    return name.empty() ? hexadecimal(reinterpret_cast<uintptr_t>(value)) : name;
}

std::string idText(uint64_t value) {
    if (value == 0)
        return "0";
    const std::string name = State::instance().nameOf(value);
    return name.empty() ? hexadecimal(value) : name;
}

std::string visualText(const XVisualInfo* visual) {
    return visual == nullptr ? "null" : "visual " + hexadecimal(visual->visualid);
}

std::string listText(const std::vector<int>& list) {
    std::string text = "{";
    for (const int word : list)
        text += (text.size() > 1 ? ", " : "") + std::to_string(word);
    return text + "}";
}

std::vector<int> attributeList(std::string_view function, const int* list) {
    constexpr size_t mostWords = 256;
    std::vector<int> words;
    if (function == "glXCreateContextAttribsARB") {
        for (; *list != 0 && words.size() < mostWords; ++list)
            words.push_back(*list);
        return words;
    }
    for (; *list != 0 && words.size() < mostWords; list += 2)
        words.insert(words.end(), {list[0], list[1]});
    return words;
}

} // namespace fake
