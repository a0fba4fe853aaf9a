#include <csignal>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <posix/atomic_file.h>

#include "testing/temporary_directory.h"

namespace {

using posix::AtomicFileSettings;
using posix::WriteFileAtomically;
using testing_support::ReadFile;
using testing_support::WriteFile;

/// While it lives, no file of this process grows beyond a size: writing fails half-way.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &mFormer);
        const rlimit limit{bytes, mFormer.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &mFormer); }

private:
    rlimit mFormer{};
};

class AtomicFileTest : public ::testing::Test {
protected:
    AtomicFileTest() { mSettings.temporaryPath = mDirectory.File("fixed"); }

    std::set<std::string> Names() {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mDirectory.Path())) {
            names.insert(entry.path().filename());
        }
        return names;
    }
    /// Why, and with which file, writing failed.
    std::string Failure(const AtomicFileSettings& settings, const std::string& text = "new") {
        try {
            WriteFileAtomically(mPath, text, settings);
            return "none";
        } catch (const posix::FileError& error) {
            return std::filesystem::path(error.Path()).filename().string() + " " + error.Step() +
                   ": " + error.code().message();
        }
    }

    testing_support::TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.File("file");
    /// With a temporary file of a known name.
    AtomicFileSettings mSettings;
};

TEST_F(AtomicFileTest, WritesAllWithItsModeAndLeavesNothingElse) {
    for (const mode_t mode : {0666U, 0400U}) {
        AtomicFileSettings settings;
        settings.mode = mode;
        const std::string text(std::size_t{1} << 20U, static_cast<char>('a' + mode % 20));
        EXPECT_TRUE(WriteFileAtomically(mPath, text, settings));
        struct stat status {};
        ASSERT_EQ(::stat(mPath.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, mode);
        EXPECT_EQ(ReadFile(mPath), text);
    }
    EXPECT_EQ(Names(), std::set<std::string>{"file"});
}

TEST_F(AtomicFileTest, AWriteThatFailsHalfWayLeavesTheOldFile) {
    WriteFile(mPath, "old");
    const FileSizeLimit limit(5000);
    EXPECT_EQ(Failure(mSettings, std::string(10000, 'x')), "fixed cannot write: File too large");
    EXPECT_THROW(WriteFileAtomically(mPath, std::string(10000, 'x'), {}), std::system_error);
    EXPECT_EQ(ReadFile(mPath), "old");
    EXPECT_EQ(Names(), std::set<std::string>{"file"});
}

TEST_F(AtomicFileTest, WhatCannotBePutInPlaceIsRemoved) {
    std::filesystem::create_directory(mPath);
    EXPECT_EQ(Failure(mSettings), "file cannot create: Is a directory");
    EXPECT_EQ(Names(), std::set<std::string>{"file"});
}

TEST_F(AtomicFileTest, AFileThatIsKeptStaysAsItIs) {
    AtomicFileSettings settings;
    settings.existing = posix::ExistingFile::kIsKept;
    EXPECT_TRUE(WriteFileAtomically(mPath, "first", settings));
    EXPECT_FALSE(WriteFileAtomically(mPath, "second", settings));
    EXPECT_EQ(ReadFile(mPath), "first");
    EXPECT_EQ(Names(), std::set<std::string>{"file"});
}

TEST_F(AtomicFileTest, NoLinkIsFollowed) {
    const std::string target = mDirectory.File("target");
    WriteFile(target, "old");
    std::filesystem::create_symlink(target, mPath);
    WriteFileAtomically(mPath, "new", {});
    EXPECT_FALSE(std::filesystem::is_symlink(mPath));
    EXPECT_EQ(ReadFile(mPath), "new");

    std::filesystem::create_symlink(target, mSettings.temporaryPath);
    EXPECT_EQ(Failure(mSettings), "fixed cannot create: File exists");
    EXPECT_EQ(ReadFile(target), "old");
    EXPECT_EQ(Names(), (std::set<std::string>{"file", "fixed", "target"}));
}

}  // namespace
