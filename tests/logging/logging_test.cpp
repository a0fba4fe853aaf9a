// The facade over its real back end, seen from the lines that come out.

#include <climits>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "logging/qel_logging.h"
#include "logging/qel_logging_aralog_impl.h"
#include "testing/captured_log.h"

namespace {

using qel_logging::EQELLogLevel;
using qel_logging::QELLogEntry;
using qel_logging::QELLogging;
using testing_support::CapturedLog;

TEST(QELLogEntryTest, NumbersAreAppendedAsPlainDecimals) {
    QELLogEntry entry("a");
    entry << LONG_MIN << " " << -1 << " " << 4294967295U << " " << ULONG_MAX << " "
          << static_cast<unsigned short>(65535) << " " << static_cast<unsigned char>(65) << " "
          << std::string("end") << static_cast<const char*>(nullptr);
    EXPECT_EQ(entry.Get(), "a-9223372036854775808 -1 4294967295 18446744073709551615 65535 65 end");
    entry.Clear();
    EXPECT_EQ(entry.Get(), "");
}

TEST(QELLogEntryTest, HexIsShortAndLowerCase) {
    EXPECT_EQ((QELLogEntry() << "").insertAsHex(0).insertAsHex(5).insertAsHex(255).Get(),
              "0x00x50xff");
}

TEST(QELLoggingTest, EachFunctionWritesAtItsOwnLevel) {
    const CapturedLog log;
    QELLogging::LogFatal("1");
    QELLogging::LogError(std::string("2"));
    QELLogging::LogWarning(QELLogEntry("3"));
    QELLogging::LogInfo(QELLogEntry() << 4);
    QELLogging::LogDebug(QELLogEntry("5"));
    QELLogging::LogVerbose("");
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"F 1", "E 2", "W 3", "I 4", "D 5", "V "}));
}

TEST(StderrLogTest, TheDefaultLevelIsDebug) {
    testing::internal::CaptureStderr();
    QELLogging::InitLogging("VT");
    EXPECT_TRUE(QELLogging::IsEnabled(EQELLogLevel::kDebug));
    EXPECT_FALSE(QELLogging::IsEnabled(EQELLogLevel::kVerbose));
    QELLogging::LogDebug("shown");
    QELLogging::LogVerbose("hidden");
    const std::string output = testing::internal::GetCapturedStderr();
    EXPECT_NE(output.find("Z debug   VT shown\n"), std::string::npos) << output;
    EXPECT_EQ(output.find("hidden"), std::string::npos) << output;
}

TEST(StderrLogTest, LinesOfSeveralThreadsStayWhole) {
    constexpr int kLines = 200;
    testing::internal::CaptureStderr();
    QELLogging::InitLogging("VT");
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c'}) {
        threads.emplace_back([letter] {
            for (int i = 0; i < kLines; ++i) {
                QELLogging::LogInfo("<" + std::string(100, letter) + ">");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream output(testing::internal::GetCapturedStderr());
    std::map<std::string, int> counts;
    for (std::string line; std::getline(output, line);) {
        ++counts[line.substr(line.find('<'))];
    }
    EXPECT_THAT(counts, testing::UnorderedElementsAre(
                            testing::Pair("<" + std::string(100, 'a') + ">", kLines),
                            testing::Pair("<" + std::string(100, 'b') + ">", kLines),
                            testing::Pair("<" + std::string(100, 'c') + ">", kLines)));
}

TEST(QELLoggingAralogImplTest, NothingIsEnabledBeforeTheRegistration) {
    const CapturedLog log;
    qel_logging::QELLoggingAralogImpl backEnd;
    EXPECT_FALSE(backEnd.IsLoggingEnabled(EQELLogLevel::kFatal));
    backEnd.LogFatal("lost");
    backEnd.InitLogging("VT", EQELLogLevel::kDebug);
    backEnd.CreateLogger("EXTRA");
    backEnd.LogFatal("written");
    EXPECT_EQ(log.Lines(), std::vector<std::string>{"F written"});
}

}  // namespace
