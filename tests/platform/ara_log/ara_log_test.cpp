#include <chrono>
#include <string>
#include <vector>

#include <ara_log_host/line_format.h>
#include <ara_log_host/sink.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ara/log/logging.h>

namespace {

using ara::log::LogLevel;
using ara_log_host::FormatEntry;

const std::chrono::system_clock::time_point kTime{std::chrono::milliseconds(1795248000007)};

TEST(LineFormatTest, AnEntryHasTimeLevelApplicationAndText) {
    EXPECT_EQ(FormatEntry(false, kTime, LogLevel::kWarn, "VT", "text"),
              "2026-11-21T08:00:00.007Z warn    VT text\n");
}

TEST(LineFormatTest, TheJournalGetsAPriorityInPlaceOfTheTime) {
    const std::vector<std::pair<LogLevel, std::string>> prefixes{
        {LogLevel::kFatal, "<2>fatal  "}, {LogLevel::kError, "<3>error  "},
        {LogLevel::kWarn, "<4>warn   "},  {LogLevel::kInfo, "<6>info   "},
        {LogLevel::kDebug, "<7>debug  "}, {LogLevel::kVerbose, "<7>verbose"}};
    for (const auto& [level, prefix] : prefixes) {
        EXPECT_EQ(FormatEntry(true, kTime, level, "VT", "text"), prefix + " VT text\n");
    }
}

TEST(LineFormatTest, ATextCannotForgeAnEntry) {
    EXPECT_EQ(FormatEntry(true, kTime, LogLevel::kInfo, "VT", "a\n<0>b"),
              "<6>info    VT a\n<6>    <0>b\n");
    EXPECT_EQ(FormatEntry(false, kTime, LogLevel::kInfo, "V\nT", "a\n\tb\r\x1b[2K\x7f"),
              "2026-11-21T08:00:00.007Z info    V T a\n    \tb\\x0d\\x1b[2K\\x7f\n");
    EXPECT_EQ(FormatEntry(true, kTime, LogLevel::kInfo, "VT", "\xc2\x9b \xc3\xa4 \xc2"),
              "<6>info    VT \\xc2\\x9b \xc3\xa4 \xc2\n")
        << "C1 controls are escaped, letters are not";
    EXPECT_EQ(FormatEntry(true, kTime, LogLevel::kInfo, "VT", std::string("a\0b", 3)),
              "<6>info    VT a\\x00b\n");
}

TEST(JournalStreamTest, CountsOnlyIfItNamesThisDescriptor) {
    struct stat status {};
    ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
    const std::string device = std::to_string(status.st_dev) + ":";
    const std::string exact = device + std::to_string(status.st_ino);
    EXPECT_TRUE(ara_log_host::IsJournalStream(exact.c_str(), STDERR_FILENO));
    for (const std::string& value : {exact + "1", device, exact.substr(device.size()), exact + "x",
                                     "-" + exact, exact.substr(device.size() - 1), std::string()}) {
        EXPECT_FALSE(ara_log_host::IsJournalStream(value.c_str(), STDERR_FILENO)) << value;
    }
    EXPECT_FALSE(ara_log_host::IsJournalStream(nullptr, STDERR_FILENO));
    EXPECT_FALSE(ara_log_host::IsJournalStream(exact.c_str(), -1));
}

TEST(LoggerTest, FollowsTheApplicationUnlessItHasALevelOfItsOwn) {
    unsetenv("ARA_LOG_LEVEL");
    const auto& follower = ara::log::CreateLogger("FOLL", "follows");
    const auto& own = ara::log::CreateLogger("OWN", "own level", LogLevel::kVerbose);
    ara::log::InitLogging("TEST", "", LogLevel::kError);
    EXPECT_TRUE(follower.IsLogEnabled(LogLevel::kError));
    EXPECT_FALSE(follower.IsLogEnabled(LogLevel::kWarn));
    EXPECT_TRUE(own.IsLogEnabled(LogLevel::kVerbose));
    EXPECT_FALSE(own.IsLogEnabled(LogLevel::kOff)) << "no line has this level";
    EXPECT_EQ(&ara::log::CreateLogger("OWN", ""), &own);

    ara::log::InitLogging("TEST", "", LogLevel::kInfo);
    EXPECT_TRUE(follower.IsLogEnabled(LogLevel::kInfo));

    setenv("ARA_LOG_LEVEL", "fatal", 1);
    ara::log::InitLogging("TEST", "", LogLevel::kInfo);
    unsetenv("ARA_LOG_LEVEL");
    EXPECT_FALSE(own.IsLogEnabled(LogLevel::kError)) << "the environment rules them all";
}

TEST(LogStreamTest, WritesOneLineWhenItGoesOrIsFlushed) {
    std::vector<std::string> lines;
    const auto former = ara_log_host::ExchangeSink(
        {[&](LogLevel, const std::string& text) { lines.push_back(text); }, LogLevel::kInfo});
    const auto& logger = ara::log::CreateLogger("STRM", "");
    logger.LogInfo() << "a " << 1 << ' ' << true << std::string(" b");
    logger.LogDebug() << "not enabled";
    {
        auto stream = logger.LogError();
        stream << "first";
        stream.Flush();
        stream << "second";
        EXPECT_EQ(lines.back(), "first");
    }
    ara_log_host::ExchangeSink(former);
    logger.LogVerbose() << "back on stderr, and not enabled there";
    EXPECT_EQ(lines, (std::vector<std::string>{"a 132true b", "first", "second"}));
}

}  // namespace
