#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>

#include "simulator/page/child_process.h"
#include "simulator/page/file_tail.h"
#include "simulator/page/log_follower.h"
#include "simulator/page/service_process.h"
#include "testing/temporary_directory.h"

namespace simulator::page {

namespace {

using testing_support::TemporaryDirectory;

void Append(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::app) << text;
}

TEST(FileTailTest, AFileIsFollowedHoweverItChanges) {
    const TemporaryDirectory directory;
    const std::string path = directory.File("log");
    std::string seen;
    FileTail tail(path, [&seen](std::string_view bytes) { seen += bytes; });
    const auto come = [&] {
        seen.clear();
        tail.Poll();
        return seen;
    };
    EXPECT_EQ(come(), "");
    Append(path, "one\n");
    EXPECT_EQ(come(), "one\n");
    EXPECT_EQ(come(), "");
    Append(path, "two");
    EXPECT_EQ(come(), "two");
    std::filesystem::resize_file(path, 0);
    EXPECT_EQ(come(), "");
    Append(path, "after the cut");
    EXPECT_EQ(come(), "after the cut");
    std::filesystem::rename(path, directory.File("old"));
    EXPECT_EQ(come(), "");
    Append(path, "another file");
    EXPECT_EQ(come(), "another file");
}

TEST(FileTailTest, OfALongFileTheEndIsReadFromTheBeginningOfALine) {
    const TemporaryDirectory directory;
    const std::string path = directory.File("log");
    Append(path, "begin\n");
    std::filesystem::resize_file(path, FileTail::kMaxHistory + 100);
    Append(path, "cut\nend\n");
    std::string seen;
    FileTail tail(path, [&seen](std::string_view bytes) { seen += bytes; });
    for (int i = 0; i < 40; ++i) {
        tail.Poll();
    }
    EXPECT_EQ(seen, "end\n");
}

TEST(LogFollowerTest, EachLineHasItsMomentAndOnlyTheNewestAreKept) {
    LogFollower log;
    log.Feed("2026-11-21T17:02:03.000Z info    VT VintrelClientFsm: one\n    further\n");
    log.Feed(
        "2026-11-21T17:02:05.500Z error   VT VintrelClientFsm: State transition to "
        "FsmStateTerminated\n\xff<b>foreign\n");
    const auto lines = log.TakeNews().json["log"];
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0]["text"], "VintrelClientFsm: one");
    EXPECT_EQ(lines[1]["level"], "info");
    EXPECT_EQ(lines[2]["at"], 2500);
    EXPECT_EQ(lines[2]["level"], "error");
    EXPECT_TRUE(log.TakeNews().json.empty());
    for (std::size_t i = 0; i < LogFollower::kMaxLines; ++i) {
        log.Feed("2026-11-21T17:02:06.000Z info    VT later\n");
    }
    EXPECT_EQ(log.Snapshot()["log"].size(), LogFollower::kMaxLines);
    EXPECT_EQ(log.Snapshot()["log"][0]["text"], "later");
}

TEST(ChildProcessTest, AProgramGetsItsArgumentsAsTheyAreAndATimeLimit) {
    const ProgramResult told =
        RunToEnd({"/bin/sh", "-c", "echo \"$1\"; echo no >&2; exit 3", "sh", "$(id); *"},
                 std::chrono::seconds(60));
    EXPECT_EQ(told.status, 3);
    EXPECT_EQ(told.output, "$(id); *\n");
    EXPECT_EQ(told.errors, "no\n");
    EXPECT_EQ(RunToEnd({"/bin/sleep", "1000"}, std::chrono::milliseconds(1)).status, 128 + SIGKILL);
    EXPECT_THROW(RunToEnd({"/no/such/program"}, std::chrono::seconds(1)), std::system_error);
}

TEST(ServiceProcessTest, OneAtATimeWithItsLogAndItsEnd) {
    const TemporaryDirectory directory;
    const std::string log = directory.File("logs/service.log");
    boost::asio::io_context loop;
    std::vector<std::string> states;
    ServiceProcess* running = nullptr;
    ServiceProcess service(
        loop, {"/bin/sh", "-c", "echo \"started $1\"; [ \"$1\" ] && exit 7; exec sleep 1000", "sh"},
        log, [&] { states.push_back(running->State()); });
    running = &service;
    service.Start();
    EXPECT_THROW(service.Start(), std::runtime_error);
    service.StartWithReset();
    loop.run();
    EXPECT_THAT(states, testing::ElementsAre("running", "stopping", "ended by signal 15", "running",
                                             "ended with status 7"));
    std::stringstream text;
    text << std::ifstream(log).rdbuf();
    EXPECT_THAT(text.str(), testing::HasSubstr("started -reset\n"));
    service.Stop();
    EXPECT_EQ(states.size(), 5U);

    service.Start();
    service.StartWithReset();
    service.Stop();
    loop.restart();
    loop.run();
    EXPECT_EQ(service.State(), "ended by signal 15") << "the later request counts";
}

}  // namespace

}  // namespace simulator::page
