#ifndef KOR_TESTS_FAKES_ARGUMENTS_H
#define KOR_TESTS_FAKES_ARGUMENTS_H

#include "state.h"

#include <bit>
#include <string_view>
#include <type_traits>
#include <unistd.h>

namespace fake {

/// "GL_TEXTURE_RECTANGLE" for its value; hexadecimal for a value without a name here, decimal below
/// 256, where object names and counts live.
std::string enumText(unsigned value);
std::string pointerText(const void* value);
std::string idText(uint64_t value);
std::string visualText(const XVisualInfo* visual);
std::string listText(const std::vector<int>& list);
/// The words of a GLX attribute list, without the final zero. Lists of glXCreateContextAttribsARB
/// are read word by word, since the library builds them that way.
std::vector<int> attributeList(std::string_view function, const int* list);

/// Turns one call's arguments, in order, into a Call.
class Arguments {
  public:
    explicit Arguments(const char* name) { call_.name = name; }

    template <typename T> void add(T value) {
        call_.arguments.push_back(asWord(value));
        text_ += (text_.empty() ? "" : ", ") + textOf(value);
        if constexpr (std::is_same_v<T, int>)
            count_ = value;
    }

    Call take() {
        call_.text = call_.name + "(" + text_ + ")";
        call_.thread = gettid();
        call_.context = threadState().context;
        return std::move(call_);
    }

  private:
    template <typename T> static Word asWord(T value) {
        if constexpr (std::is_same_v<T, float>)
            return std::bit_cast<uint32_t>(value);
        else if constexpr (std::is_same_v<T, double>)
            return std::bit_cast<uint64_t>(value);
        else if constexpr (std::is_pointer_v<T>)
            return reinterpret_cast<uintptr_t>(value);
        else
            return static_cast<Word>(value);
    }

    template <typename T> std::string textOf(T value) {
        if constexpr (std::is_same_v<T, Display*>) {
            return State::instance().displayName(value);
        } else if constexpr (std::is_same_v<T, XVisualInfo*>) {
            return visualText(value);
        } else if constexpr (std::is_same_v<T, const int*>) {
            if (value == nullptr)
                return "null";
            call_.list = attributeList(call_.name, value);
            return listText(call_.list);
        } else if constexpr (std::is_same_v<T, const unsigned*>) {
            return listText(value == nullptr ? std::vector<int>{}
                                             : std::vector<int>(value, value + count_));
        } else if constexpr (std::is_same_v<T, const char*> ||
                             std::is_same_v<T, const unsigned char*>) {
            return value == nullptr ? "null" : keepText(reinterpret_cast<const char*>(value));
        } else if constexpr (std::is_same_v<T, const char* const*>) {
            std::string all;
            for (int i = 0; value != nullptr && i < count_; ++i)
                all += keepText(value[i]);
            return all;
        } else if constexpr (std::is_pointer_v<T> && std::is_integral_v<std::remove_pointer_t<T>> &&
                             !std::is_const_v<std::remove_pointer_t<T>>) {
            return value == nullptr ? "null" : "out";
        } else if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>) {
            return value == nullptr ? "null" : "function";
        } else if constexpr (std::is_pointer_v<T>) {
            return pointerText(value);
        } else if constexpr (std::is_same_v<T, unsigned>) {
            return enumText(value);
        } else if constexpr (std::is_same_v<T, unsigned long> || std::is_same_v<T, GLuint64>) {
            return idText(value);
        } else if constexpr (std::is_floating_point_v<T>) {
            char text[32];
            snprintf(text, sizeof(text), "%g", static_cast<double>(value));
            return text;
        } else {
            return std::to_string(value);
        }
    }

    std::string keepText(const char* text) {
        call_.texts.emplace_back(text);
        return "\"" + call_.texts.back() + "\"";
    }

    Call call_;
    std::string text_;
    int count_ = 0; // the last int argument: the length of the array that follows
};

} // namespace fake

#endif
