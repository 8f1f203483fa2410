#ifndef KOR_TESTS_FUZZ_INPUT_H
#define KOR_TESTS_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kor::fuzz {

/// Takes one input of the fuzzer apart, front to back. Reads past the end give zeros and empty
/// texts.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

    [[nodiscard]] size_t left() const { return static_cast<size_t>(end_ - next_); }
    uint8_t byte() { return next_ < end_ ? *next_++ : uint8_t{0}; }
    int32_t word() {
        uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8)
            value |= uint32_t{byte()} << shift;
        return static_cast<int32_t>(value);
    }
    /// The text up to the next 0 byte, which is taken too.
    std::string text() {
        std::string result;
        while (next_ < end_) {
            const char c = static_cast<char>(*next_++);
            if (c == '\0')
                break;
            result += c;
        }
        return result;
    }
    std::string rest() {
        std::string result(reinterpret_cast<const char*>(next_), left());
        next_ = end_;
        return result;
    }

  private:
    const uint8_t* next_;
    const uint8_t* end_;
};

/// Where broken rules are reported.
inline FILE*& report() {
    static FILE* stream = stderr;
    return stream;
}

/// Lets what the code under test prints on stderr go nowhere. The fuzzer's own lines, the
/// sanitizers' and those of require() still appear.
inline void silence() {
    report();
    stderr = fopen("/dev/null", "w");
}

/// Ends the run, and so tells the fuzzer that it found something, unless the rule holds.
inline void require(bool holds, const char* rule) {
    if (holds)
        return;
    fprintf(report(), "broken rule: %s\n", rule);
    abort();
}

/// An empty folder of this process, gone when it ends.
inline const std::string& temporaryFolder() {
    static const std::string folder = [] {
        char name[] = "/tmp/kor-fuzz-XXXXXX";
        require(mkdtemp(name) != nullptr, "a folder can be made");
        static std::string toRemove;
        toRemove = name;
        atexit([] {
            const std::string command = "rm -rf '" + toRemove + "'";
            (void)!system(command.c_str());
        });
        return toRemove;
    }();
    return folder;
}

inline void writeFile(const std::string& path, const std::string& content) {
    FILE* file = fopen(path.c_str(), "wb");
    require(file != nullptr, "a file can be written");
    fwrite(content.data(), 1, content.size(), file);
    fclose(file);
}

} // namespace kor::fuzz

#endif
