#ifndef KOR_TESTS_UNIT_CONFIG_SANDBOX_H
#define KOR_TESTS_UNIT_CONFIG_SANDBOX_H

#include "../support/temporary_directory.h"
#include "interposed.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace kor::test {

/// An empty world for settings: fresh folders as working directory ("work"), home ("home") and
/// /etc/kor ("system"), and an environment without any of our variables. Restores everything.
class Sandbox {
  public:
    Sandbox() : previousFolder_(std::filesystem::current_path()) {
        for (const char* folder : {"work", "home", "system"})
            std::filesystem::create_directory(root_.path() / folder);
        std::filesystem::current_path(root_.path() / "work");
        systemFolder = path("system");
        std::vector<std::string> ours = {"HOME", "XDG_CONFIG_HOME"};
        for (char** variable = environ; *variable != nullptr; ++variable) {
            const std::string_view text = *variable;
            if (text.starts_with("KOR_GL_"))
                ours.emplace_back(text.substr(0, text.find('=')));
        }
        for (const std::string& name : ours)
            unset(name);
        set("HOME", path("home"));
    }
    ~Sandbox() {
        std::filesystem::current_path(previousFolder_);
        systemFolder.clear();
        for (const auto& [name, value] : previous_) {
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
        }
    }
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    std::string path(const std::string& name) const { return (root_.path() / name).string(); }
    std::string write(const std::string& name, const std::string& content) const {
        return root_.write(name, content);
    }
    std::string read(const std::string& name) const { return root_.read(name); }

    std::string writeAdmin(const std::string& content) const {
        return write("work/kor-gl.conf.admin", content);
    }
    std::string writeUser(const std::string& content) const {
        return write("home/.config/kor/kor-gl.conf", content);
    }
    std::string writeSystem(const std::string& content) const {
        return write("system/kor-gl.conf", content);
    }

    void set(const std::string& name, const std::string& value) {
        remember(name);
        setenv(name.c_str(), value.c_str(), 1);
    }
    void unset(const std::string& name) {
        remember(name);
        unsetenv(name.c_str());
    }

  private:
    void remember(const std::string& name) {
        const char* value = getenv(name.c_str());
        previous_.try_emplace(name,
                              value != nullptr ? std::optional<std::string>(value) : std::nullopt);
    }

    TemporaryDirectory root_;
    std::filesystem::path previousFolder_;
    std::map<std::string, std::optional<std::string>> previous_;
};

} // namespace kor::test

#endif
