#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include "testing/files.h"
#include "testing/temporary_directory.h"

namespace timeline {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing_support::ReadFile;

/// The real program.
class TimelineProgramTest : public ::testing::Test {
protected:
    int Run(const std::string& arguments) {
        const std::string command = "cd " + mDirectory.Path().string() + " && " PROGRAM " --utc " +
                                    arguments + " >output 2>errors </dev/null";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    testing_support::TemporaryDirectory mDirectory;
};

TEST_F(TimelineProgramTest, ExplainsLogsOfRealRuns) {
    const std::pair<std::string, int> logs[]{
        {"good", 0}, {"retries", 1}, {"restart", 0}, {"damaged", 1}, {"low-level", 1}};
    for (const auto& [name, status] : logs) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Run("--explain " LOGS + name + ".log"), status);
        EXPECT_EQ(mDirectory.Read("output"), ReadFile(LOGS + name + ".txt"));
    }
}

TEST_F(TimelineProgramTest, AReportIsOneFileThatNoLogCanBreakOutOf) {
    ASSERT_EQ(Run(LOGS "damaged.log -o report.html"), 0) << mDirectory.Read("errors");
    std::string report = mDirectory.Read("report.html");
    EXPECT_THAT(report, HasSubstr("default-src 'none'"));
    EXPECT_THAT(report, Not(HasSubstr("<img")));
    EXPECT_THAT(report, Not(HasSubstr("<script>alert")));
    const std::string begin = R"(id="data">)";
    report.erase(0, report.find(begin) + begin.size());
    EXPECT_EQ(nlohmann::json::parse(report.substr(0, report.find("</script>"))),
              nlohmann::json::parse(ReadFile(LOGS "damaged.json")));
}

TEST_F(TimelineProgramTest, SaysWhatItCannotDo) {
    mDirectory.Write("foreign.log", "Nov 21 17:02:03 unit kernel: text\n");
    const std::tuple<std::string, int, std::string> uses[]{
        {"--explain no-such.log", 2, "Cannot open no-such.log"},
        {"--explain .", 2, "Cannot read .: it is a directory"},
        {"--explain foreign.log", 3, "No line of the service is in this log."},
        {"-o no-such-directory/report.html foreign.log", 2,
         "Cannot write no-such-directory/report"},
        {"", 2, "LOG is required"},
        {"--help", 0, "Exit status"},
    };
    for (const auto& [arguments, status, says] : uses) {
        EXPECT_EQ(Run(arguments), status) << arguments;
        EXPECT_THAT(mDirectory.Read("output") + mDirectory.Read("errors"), HasSubstr(says));
    }
}

}  // namespace

}  // namespace timeline
