// The report itself: its forms, its status, and processes that are lost while a check is made.
#include "doctor_fixture.h"
#include "doctor_options.h"
#include "failure.h"
#include "section.h"

#include <csignal>
#include <unistd.h>

using namespace kor::test;
using kordoctor::Check;
using kordoctor::Verdict;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

CommandResult runDoctor(const std::vector<std::string>& arguments) {
    Command command;
    command.arguments = arguments;
    command.arguments.insert(command.arguments.begin(), buildProgram("kordoctor"));
    command.environment = {{"DISPLAY", std::nullopt}, {"KOR_GL_DISPLAY", noDisplay}};
    return runCommand(command);
}

std::vector<Check> lose(const std::function<void()>& how) {
    kordoctor::Section section;
    section.checks = {{"a", "first"}, {"b", "second"}, {"c", "third"}};
    section.patience = std::chrono::seconds(1);
    section.adviceWhenLost = "do something";
    section.examine = [&](kordoctor::Findings& findings) {
        findings.begin("a");
        findings.ok("well");
        findings.fact("name", "value");
        findings.begin("b");
        how();
    };
    kordoctor::Facts facts;
    const std::vector<Check> checks = kordoctor::runSection(section, facts);
    EXPECT_EQ(facts["name"], "value") << "what was found before is kept";
    return checks;
}

} // namespace

TEST(KordoctorReport, ExitStatusIsThatOfTheWorst) {
    const auto statusOf = [](std::vector<Verdict> verdicts) {
        std::vector<Check> checks;
        for (const Verdict verdict : verdicts)
            checks.push_back({"id", "title", verdict, "", ""});
        return kordoctor::exitStatusOf(kordoctor::worstOf(checks));
    };
    EXPECT_EQ(statusOf({}), 0);
    EXPECT_EQ(statusOf({Verdict::Ok, Verdict::Skipped}), 0);
    EXPECT_EQ(statusOf({Verdict::Ok, Verdict::Warning, Verdict::Skipped}), 1);
    EXPECT_EQ(statusOf({Verdict::Broken, Verdict::Warning}), 2);
}

TEST(KordoctorReport, TextHasOneLineForEachCheck) {
    const std::string text =
        kordoctor::asText({{"a", "one", Verdict::Ok, "fine", ""},
                           {"b", "second", Verdict::Broken, "two\nlines", "mend it"}});
    EXPECT_EQ(text, "ok       one:    fine\nBROKEN   second: two lines -> mend it\n");
}

TEST(KordoctorReport, JsonHoldsAnyText) {
    EXPECT_EQ(kordoctor::jsonString("a\"b\\c\n\x01\xc3\xa9\xff\xc0\x80\xed\xa0\x80"),
              "\"a\\\"b\\\\c\\u000a\\u0001\xc3\xa9?????"
              "?\"");
}

TEST_F(DoctorTest, JsonIsReadByOthers) {
    const Diagnosis found = diagnoseBlindly({{"DISPLAY", "a\"b\\\xff\x01"}});
    put("report.json", found.output);
    const CommandResult read = runCommand(
        {.arguments = {"python3", "-c",
                       "import json, sys\n"
                       "report = json.load(open(sys.argv[1], encoding='utf-8'))\n"
                       "assert report['status'] == 'broken' and report['exitStatus'] == 2\n"
                       "assert {c['status'] for c in report['checks']} <= "
                       "{'ok', 'warning', 'broken', 'skipped'}\n"
                       "assert len({c['id'] for c in report['checks']}) == "
                       "len(report['checks']) > 40\n"
                       "assert all(c['advice'] for c in report['checks']"
                       " if c['status'] in ('warning', 'broken'))",
                       path("report.json")}});
    EXPECT_EQ(read.status, 0) << read.errors;
}

TEST(KordoctorReport, PlainReportGoesToStandardOutput) {
    const CommandResult result = runDoctor({});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.output, HasSubstr("BROKEN   session's display:"));
    EXPECT_EQ(result.errors, "");
}

TEST(KordoctorReport, ReportThatCannotBeWrittenIsAFailure) {
    const CommandResult result =
        runCommand({.arguments = {"sh", "-c", "exec \"$0\" > /dev/full", buildProgram("kordoctor")},
                    .environment = {{"DISPLAY", std::nullopt}, {"KOR_GL_DISPLAY", noDisplay}}});
    EXPECT_EQ(result.status, kordoctor::statusUsage);
    EXPECT_THAT(result.errors, HasSubstr("cannot be written"));
}

TEST(KordoctorSection, CrashIsReportedAtItsCheck) {
    const auto checks = lose([] { raise(SIGSEGV); });
    EXPECT_EQ(checks[0].verdict, Verdict::Ok);
    EXPECT_EQ(checks[1].verdict, Verdict::Broken);
    EXPECT_THAT(checks[1].result, HasSubstr("signal 11"));
    EXPECT_EQ(checks[1].advice, "do something");
    EXPECT_EQ(checks[2].verdict, Verdict::Skipped);
    EXPECT_THAT(checks[2].result, HasSubstr("\"second\""));
}

TEST(KordoctorSection, HangIsGivenUp) {
    const auto begin = std::chrono::steady_clock::now();
    const auto checks = lose([] {
        for (;;)
            pause();
    });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_THAT(checks[1].result, HasSubstr("no answer within 1 seconds"));
}

TEST(KordoctorSection, ProcessThatEndsItselfIsReportedWithItsWords) {
    const auto checks = lose([] {
        (void)!write(STDERR_FILENO, "out of\nmemory", 13);
        _exit(9);
    });
    EXPECT_THAT(checks[1].result, HasSubstr("with status 9; it said: out of memory"));
    const auto thrown = lose([] { throw std::runtime_error("no room"); });
    EXPECT_THAT(thrown[1].result, HasSubstr("no room"));
}

TEST(KordoctorSection, EndlessWordsCostLittle) {
    const auto checks = lose([] {
        const std::string much(100000, 'x');
        for (;;)
            (void)!write(STDERR_FILENO, much.data(), much.size());
    });
    EXPECT_THAT(checks[1].result, HasSubstr("no answer"));
    EXPECT_LT(checks[1].result.size(), 1000U);
}

TEST(KordoctorOptions, WrongOnesAreRefused) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--bogus"},
                                                      {"--"},
                                                      {"--watch"},
                                                      {"--watch", "x"},
                                                      {"--watch", "-1"},
                                                      {"--watch", "0"},
                                                      {"--watch=1", "program"},
                                                      {"--seconds", "1"},
                                                      {"--watch=1", "--seconds", "0"},
                                                      {"--watch=1", "--seconds=nan"},
                                                      {"--json=yes"}}) {
        const CommandResult result = runDoctor(arguments);
        EXPECT_EQ(result.status, 3) << testing::PrintToString(arguments);
        EXPECT_THAT(result.errors, StartsWith("kordoctor: ")) << testing::PrintToString(arguments);
        EXPECT_THAT(result.errors, HasSubstr("--help"));
        EXPECT_EQ(result.output, "");
    }
}

TEST(KordoctorOptions, HelpAndVersionAreGiven) {
    const CommandResult help = runDoctor({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* option : {"--json", "--watch", "--seconds", "--version"})
        EXPECT_THAT(help.output, HasSubstr(option));
    EXPECT_THAT(runDoctor({"--version"}).output, StartsWith("kordoctor "));
}
