#ifndef KOR_TESTS_FRONT_CHILD_H
#define KOR_TESTS_FRONT_CHILD_H

#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/// A front library starts once per process, so each test looks at it in a child process.

using Environment = std::vector<std::pair<const char*, std::string>>;

struct ChildResult {
    int status = -1; // what waitpid gave
    std::string output;
    std::string errors; // what it wrote on stderr
};

/// Runs the function in a child with these variables set (an empty value removes one) and waits for
/// it, killing it after 60 seconds. The child ends by exit(), with 1 when an expectation in it
/// failed, which also fails the test. Variables that would lead the front elsewhere are removed
/// first.
ChildResult inChild(const Environment& environment, const std::function<void()>& function);

/// As above, for a child that is to end by itself in another way: nothing is expected of its
/// status.
ChildResult inDyingChild(const Environment& environment, const std::function<void()>& function);

size_t countLines(const std::string& text);

#endif
