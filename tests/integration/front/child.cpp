#include "child.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string contents(FILE* file) {
    std::string text;
    rewind(file);
    char buffer[4096];
    for (size_t length = 0; (length = fread(buffer, 1, sizeof buffer, file)) > 0;)
        text.append(buffer, length);
    return text;
}

} // namespace

ChildResult inDyingChild(const Environment& environment, const std::function<void()>& function) {
    FILE* output = tmpfile();
    FILE* errors = tmpfile();
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(fileno(output), STDOUT_FILENO);
        dup2(fileno(errors), STDERR_FILENO);
        for (const char* name : {"LD_LIBRARY_PATH", "KOR_FRONT_SYSTEM_GL", "KOR_FRONT_LIBRARY"})
            unsetenv(name);
        for (const auto& [name, value] : environment)
            value.empty() ? unsetenv(name) : setenv(name, value.c_str(), 1);
        alarm(60);
        function();
        exit(testing::Test::HasFailure() ? 1 : 0);
    }
    ChildResult result;
    waitpid(child, &result.status, 0);
    result.output = contents(output);
    result.errors = contents(errors);
    fclose(output);
    fclose(errors);
    return result;
}

ChildResult inChild(const Environment& environment, const std::function<void()>& function) {
    ChildResult result = inDyingChild(environment, function);
    EXPECT_TRUE(WIFEXITED(result.status) && WEXITSTATUS(result.status) == 0)
        << "wait status " << result.status << "\n"
        << result.output << result.errors;
    return result;
}

size_t countLines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}
