#ifndef KOR_TESTS_UNIT_SUPPORT_STDERR_CAPTURE_H
#define KOR_TESTS_UNIT_SUPPORT_STDERR_CAPTURE_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace kor::test {

/// Takes what is written to file descriptor 2 for as long as it lives.
class StderrCapture {
  public:
    StderrCapture() : file_(tmpfile()), saved_(dup(STDERR_FILENO)) {
        if (file_ == nullptr || saved_ < 0 || dup2(fileno(file_), STDERR_FILENO) < 0)
            abort();
    }
    ~StderrCapture() {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
        fclose(file_);
    }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    std::string text() const {
        std::string all;
        char piece[4096];
        off_t at = 0;
        for (ssize_t got; (got = pread(fileno(file_), piece, sizeof piece, at)) > 0; at += got)
            all.append(piece, static_cast<size_t>(got));
        return all;
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        std::string rest = text();
        for (size_t end; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1))
            all.push_back(rest.substr(0, end));
        if (!rest.empty())
            all.push_back(rest);
        return all;
    }

  private:
    FILE* file_;
    int saved_;
};

} // namespace kor::test

#endif
