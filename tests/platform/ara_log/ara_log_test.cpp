#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ara/log/logging.h>
#include <ara_log_host/line_format.h>
#include <ara_log_host/log_config.h>
#include <ara_log_host/sink.h>

#include "dlt_output.h"
#include "testing/environment.h"
#include "testing/temporary_directory.h"

namespace {

using ara::log::LogLevel;
using ara_log_host::FormatEntry;
using testing_support::EnvironmentVariable;

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

    const EnvironmentVariable variable("ARA_LOG_LEVEL", "fatal");
    ara::log::InitLogging("TEST", "", LogLevel::kInfo);
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

/// Something in place of stderr, for as long as it lives.
class Redirected {
public:
    explicit Redirected(int target) : mFormer(dup(STDERR_FILENO)) {
        dup2(target, STDERR_FILENO);
        ara::log::InitLogging("VT", "", LogLevel::kInfo);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;
    ~Redirected() {
        dup2(mFormer, STDERR_FILENO);
        close(mFormer);
    }

private:
    int mFormer;
};

std::string ReadAll(int descriptor) {
    std::string all;
    std::array<char, 65536> bytes{};
    ssize_t count = 0;
    while ((count = read(descriptor, bytes.data(), bytes.size())) > 0) {
        all.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return all;
}

/// Its text without the time.
std::vector<std::string> Lines(const std::string& all) {
    std::vector<std::string> lines;
    std::istringstream stream(all);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line.substr(std::string("2026-11-21T08:00:00.007Z ").size()));
    }
    return lines;
}

enum class Channel { kPipe, kPipeOfAnotherUser, kSocket };

class ConsoleTest : public testing::TestWithParam<Channel> {
protected:
    ConsoleTest() {
        if (GetParam() == Channel::kSocket) {
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, mEnds.data()), 0);
        } else {
            EXPECT_EQ(pipe(mEnds.data()), 0);
        }
        EXPECT_EQ(fcntl(mEnds[0], F_SETFL, O_NONBLOCK), 0);
        if (GetParam() == Channel::kPipeOfAnotherUser) {
            EXPECT_EQ(fchmod(mEnds[1], 0), 0);
            setfsuid(65534);
        }
    }
    ~ConsoleTest() override {
        setfsuid(geteuid());
        close(mEnds[0]);
        close(mEnds[1]);
    }

    const ara::log::Logger& mLogger = ara::log::CreateLogger("CONS", "", LogLevel::kInfo);
    std::array<int, 2> mEnds{};
};

TEST_P(ConsoleTest, AReaderThatDoesNotReadCostsLinesAndNoTime) {
    const Redirected redirected(mEnds[1]);
    const std::string text(10000, 'x');
    constexpr std::size_t kMoreThanFits = 100;
    for (std::size_t i = 0; i < kMoreThanFits; ++i) {
        mLogger.LogInfo() << text;
    }
    EXPECT_EQ(fcntl(mEnds[1], F_GETFL) & O_NONBLOCK, 0) << "others write there, too";
    std::string all = ReadAll(mEnds[0]);
    mLogger.LogInfo() << "after it";
    all += ReadAll(mEnds[0]);

    const std::vector<std::string> lines = Lines(all);
    ASSERT_GE(lines.size(), 3U);
    const std::size_t whole = lines.size() - 2;
    EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.end() - 2),
                testing::Each("info    VT " + text));
    EXPECT_EQ(lines[whole],
              "warn    VT log lines dropped: " + std::to_string(kMoreThanFits - whole));
    EXPECT_EQ(lines.back(), "info    VT after it");
}

TEST_P(ConsoleTest, AReaderThatIsGoneEndsNothing) {
    const Redirected redirected(mEnds[1]);
    mLogger.LogInfo() << "read";
    close(mEnds[0]);
    mLogger.LogInfo() << "by nobody";
    mLogger.LogInfo() << "by nobody";
    sigset_t pending{};
    ASSERT_EQ(sigpending(&pending), 0);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
}

INSTANTIATE_TEST_SUITE_P(Channels, ConsoleTest,
                         testing::Values(Channel::kPipe, Channel::kPipeOfAnotherUser,
                                         Channel::kSocket));

TEST(ConsoleFileTest, AFullDiskCostsLinesUntilThereIsRoom) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    const int file = open(testing::TempDir().c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
    ASSERT_GE(std::min(full, file), 0);
    const auto& logger = ara::log::CreateLogger("FULL", "", LogLevel::kInfo);
    {
        const Redirected redirected(full);
        logger.LogInfo() << "lost";
        logger.LogInfo() << "lost";
        dup2(file, STDERR_FILENO);
        logger.LogInfo() << "kept";
    }
    ASSERT_EQ(lseek(file, 0, SEEK_SET), 0);
    EXPECT_THAT(
        Lines(ReadAll(file)),
        testing::ElementsAre(testing::EndsWith("log lines dropped: 2"), testing::EndsWith("kept")));
    close(full);
    close(file);
}

/// Keeps the lines, and hands the listener over to the test.
class ScriptedDlt : public ara::log::internal::DltOutput {
public:
    void AddContext(const std::string&, const std::string&, LogLevel) override {}
    void Write(const std::string& contextId, LogLevel, const std::string& text) override {
        lines.push_back(contextId + " " + text);
    }

    static LevelListener listener;
    static std::vector<std::string> lines;
};

ara::log::internal::DltOutput::LevelListener ScriptedDlt::listener{nullptr};
std::vector<std::string> ScriptedDlt::lines;

TEST(DltTest, LevelsComeOnAThreadOfTheLibraryWhileOthersLog) {
    setenv("ARA_LOG_OUTPUT", "dlt", 1);
    const auto& early = ara::log::CreateLogger("EARLY", "", LogLevel::kInfo);
    ara::log::InitLogging("VT", "", LogLevel::kInfo);
    unsetenv("ARA_LOG_OUTPUT");
    constexpr int kRounds = 100;
    std::thread library([] {
        for (int round = 0; round < kRounds; ++round) {
            ScriptedDlt::listener("EARL", LogLevel::kError);
            ScriptedDlt::listener("EARL", LogLevel::kVerbose);
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        ara::log::CreateLogger("C" + std::to_string(round), "").LogInfo() << "a line";
        early.LogVerbose() << "maybe";
        // As every change of the sink, this looks at the levels of all.
        ara_log_host::ExchangeSink({});
    }
    library.join();
    EXPECT_EQ(std::count(ScriptedDlt::lines.begin(), ScriptedDlt::lines.end(), "EARLY maybe"),
              static_cast<std::ptrdiff_t>(ScriptedDlt::lines.size()) - kRounds);
    EXPECT_TRUE(early.IsLogEnabled(LogLevel::kVerbose)) << "by the first four letters of its name";
}

TEST(LogConfigTest, AFileIsTakenAsAWholeOrNotAtAll) {
    const auto config = ara_log_host::ParseLogConfig(
        R"({"outputs":["dlt"],"level":"off","applicationId":"VTCL","applicationDescription":"d"})");
    EXPECT_TRUE(!config.console && config.dlt);
    EXPECT_EQ(config.level, LogLevel::kOff);
    EXPECT_EQ(config.applicationId + config.applicationDescription, "VTCLd");
    for (const char* text :
         {"", "[]", R"({"outputs":[]})", R"({"outputs":"dlt"})", R"({"outputs":["dlt","syslog"]})",
          R"({"level":"loud"})", R"({"level":3})", R"({"applicationId":"VTCL1"})",
          R"({"applicationId":""})", R"({"applicationId":"V\n"})", R"({"Level":"info"})"}) {
        EXPECT_THROW(ara_log_host::ParseLogConfig(text), std::runtime_error) << text;
    }
}

TEST(LogConfigTest, TheEnvironmentOverridesTheFileAndWhatIsUnusableIsNamed) {
    const testing_support::TemporaryDirectory directory;
    const std::string path = directory.File("Logging.json");
    const auto read = [&](const std::string& file, const char* output, const char* level) {
        directory.Write("Logging.json", file);
        const EnvironmentVariable variables[] = {
            {"ARA_LOG_CONFIG", path}, {"ARA_LOG_OUTPUT", output}, {"ARA_LOG_LEVEL", level}};
        std::vector<std::string> complaints;
        const auto config = ara_log_host::ReadLogConfig(complaints);
        return std::pair(config, complaints);
    };
    const auto [config, none] =
        read(R"({"outputs":["console"],"level":"off"})", "dlt,console", "debug");
    EXPECT_TRUE(config.console && config.dlt && none.empty());
    EXPECT_EQ(config.level, LogLevel::kDebug);

    const auto [fallback, complaints] = read("{", "dlt,", "loud");
    EXPECT_TRUE(fallback.console && !fallback.dlt && !fallback.level);
    EXPECT_THAT(complaints,
                testing::ElementsAre("Log configuration, " + path + ": no JSON object",
                                     "Log configuration, ARA_LOG_OUTPUT: unknown output ''",
                                     "Log configuration, ARA_LOG_LEVEL: unknown level 'loud'"));
}

}  // namespace

// Takes the place of the one that is there, which the linker then leaves out.
std::unique_ptr<ara::log::internal::DltOutput> ara::log::internal::DltOutput::Open(
    const std::string& /*appId*/, const std::string& /*description*/, LevelListener listener) {
    ScriptedDlt::listener = listener;
    return std::make_unique<ScriptedDlt>();
}
