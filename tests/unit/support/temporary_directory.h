#ifndef KOR_TESTS_UNIT_SUPPORT_TEMPORARY_DIRECTORY_H
#define KOR_TESTS_UNIT_SUPPORT_TEMPORARY_DIRECTORY_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace kor::test {

/// A fresh folder that goes with all its contents.
class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "kor-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            abort();
        path_ = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// Writes a file below the folder, its parents included, and returns its full name.
    std::string write(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file.string();
    }
    std::string read(const std::string& name) const {
        std::ostringstream content;
        content << std::ifstream(path_ / name, std::ios::binary).rdbuf();
        return content.str();
    }

  private:
    std::filesystem::path path_;
};

} // namespace kor::test

#endif
