#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "logging/qel_logging.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"
#include "testing/waiting.h"

namespace {

using namespace std::chrono_literals;
using qel_logging::QELLogging;
using testing_support::CapturedLog;

TEST(CapturedLogTest, HoldsTheLinesOfAllThreadsAndLevels) {
    CapturedLog log;
    QELLogging::LogVerbose("first line");
    std::thread other([] { QELLogging::LogFatal("second line"); });
    EXPECT_TRUE(log.WaitFor("second line"));
    other.join();

    EXPECT_TRUE(log.Contains("V first line"));
    EXPECT_FALSE(log.Contains("V second line"));
    EXPECT_FALSE(log.Contains("F second")) << "a part is not the line";
    EXPECT_EQ(log.Count(" line"), 2U);
    EXPECT_FALSE(log.WaitFor(" line", 3, 0ms));

    log.Clear();
    EXPECT_TRUE(log.Lines().empty());
}

TEST(GateTest, HoldsUntilItIsOpenedAndCounts) {
    testing_support::Gate there;
    testing_support::Gate back;
    std::thread other([&] {
        there.Pass();
        back.Open();
        back.Open();
    });
    EXPECT_EQ(back.Openings(), 0);
    there.Open();
    EXPECT_TRUE(back.Pass());
    other.join();
    EXPECT_EQ(back.Openings(), 2);
}

TEST(TemporaryDirectoryTest, GoesWithAllThatItHolds) {
    std::filesystem::path path;
    {
        const testing_support::TemporaryDirectory directory;
        path = directory.Path();
        std::filesystem::create_directory(path / "inner");
        const std::string bytes("x\0\n", 3);
        EXPECT_EQ(testing_support::ReadFile(directory.Write("inner/file", bytes)), bytes);
        EXPECT_EQ(directory.Read("missing"), "");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
