#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <posix/directory_watch.h>

#include "testing/temporary_directory.h"
#include "testing/waiting.h"

namespace {

using posix::DirectoryWatch;
using testing_support::kHangGuard;

class DirectoryWatchTest : public ::testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directory(mPath); }

    void TearDown() override {
        mWatch->Close();
        mContext.run_for(kHangGuard);
        EXPECT_TRUE(mContext.stopped()) << "the watch does not let go of the loop";
    }

    void Watch(const std::string& name) {
        mWatch = DirectoryWatch::Open(mContext.get_executor(), mPath, name,
                                      [this](const auto& report) { mReport = report; });
        ASSERT_NE(mWatch, nullptr);
    }

    std::string File(const std::string& name) const { return mPath + "/" + name; }
    static void Write(const std::string& path) { testing_support::WriteFile(path, "text"); }

    /// What the next report says; nothing if none comes.
    std::optional<DirectoryWatch::Report> Report() {
        mReport.reset();
        while (!mReport && mContext.run_one_for(kHangGuard) > 0) {
        }
        return mReport;
    }
    bool SeesChange() {
        const auto report = Report();
        return report && report->changed && report->watching;
    }
    bool IsQuiet() {
        mReport.reset();
        mContext.poll();
        return !mReport;
    }

    testing_support::TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.File("watched");
    boost::asio::io_context mContext;
    std::shared_ptr<DirectoryWatch> mWatch;
    std::optional<DirectoryWatch::Report> mReport;
};

TEST_F(DirectoryWatchTest, SeesWhateverHappensToItsFileAndNothingElse) {
    Watch("file");
    Write(File("other"));
    EXPECT_TRUE(IsQuiet());
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"written", [&] { Write(File("file")); }},
        {"replaced", [&] { std::filesystem::rename(File("other"), File("file")); }},
        {"protected",
         [&] { std::filesystem::permissions(File("file"), std::filesystem::perms::owner_read); }},
        {"moved away", [&] { std::filesystem::rename(File("file"), File("other")); }},
        {"moved here", [&] { std::filesystem::rename(File("other"), File("file")); }},
        {"removed", [&] { std::filesystem::remove(File("file")); }},
    };
    for (const auto& [name, change] : changes) {
        change();
        EXPECT_TRUE(SeesChange()) << name;
    }
}

TEST_F(DirectoryWatchTest, WithoutANameEachFileCounts) {
    Watch("");
    Write(File("any"));
    EXPECT_TRUE(SeesChange());
}

TEST_F(DirectoryWatchTest, TheLastReportIsThatTheDirectoryHasGone) {
    Watch("file");
    std::filesystem::rename(mPath, mPath + ".old");
    const auto report = Report();
    ASSERT_TRUE(report);
    EXPECT_FALSE(report->watching);
    Write(mPath + ".old/file");
    EXPECT_TRUE(IsQuiet());
}

TEST_F(DirectoryWatchTest, ReportsNothingOnceItIsClosed) {
    Watch("file");
    Write(File("file"));
    mWatch->Close();
    EXPECT_TRUE(IsQuiet());
}

TEST(DirectoryWatch, SaysWhyADirectoryCannotBeWatched) {
    boost::asio::io_context context;
    EXPECT_EQ(DirectoryWatch::Open(context.get_executor(), "/nonexistent", "", {}), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(DirectoryWatch::Open(context.get_executor(), "/dev/null", "", {}), nullptr);
    EXPECT_EQ(errno, ENOTDIR);
}

}  // namespace
