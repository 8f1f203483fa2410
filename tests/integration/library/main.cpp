// Runs the selected tests, each in a process of its own: the library's state is made once per
// process and stays. CTest selects one test at a time anyway.

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

bool passes(const char* program, const std::string& test) {
    const pid_t child = fork();
    if (child == 0) {
        const std::string filter = "--gtest_filter=" + test;
        execl("/proc/self/exe", program, filter.c_str(), "--gtest_brief=1", nullptr);
        _exit(127);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Takes over when the filter has been applied, instead of the tests themselves.
class EachInItsOwnProcess : public testing::EmptyTestEventListener {
  public:
    explicit EachInItsOwnProcess(const char* program) : program_(program) {}

    void OnTestIterationStart(const testing::UnitTest& unit, int /*iteration*/) override {
        std::vector<std::string> failed;
        for (int i = 0; i < unit.total_test_suite_count(); ++i) {
            const testing::TestSuite& suite = *unit.GetTestSuite(i);
            for (int j = 0; j < suite.total_test_count(); ++j) {
                const testing::TestInfo& test = *suite.GetTestInfo(j);
                const std::string name = std::string(suite.name()) + "." + test.name();
                if (test.should_run() && !passes(program_, name))
                    failed.push_back(name);
            }
        }
        printf("%d tests, %zu failed\n", unit.test_to_run_count(), failed.size());
        for (const std::string& name : failed)
            printf("FAILED %s\n", name.c_str());
        exit(failed.empty() && unit.test_to_run_count() != 0 ? 0 : 1);
    }

  private:
    const char* program_;
};

bool namesOneTest(const std::string& filter) {
    return filter.find_first_of("*?:-") == std::string::npos;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && !namesOneTest(testing::GTEST_FLAG(filter)))
        testing::UnitTest::GetInstance()->listeners().Append(new EachInItsOwnProcess(argv[0]));
    return RUN_ALL_TESTS();
}
