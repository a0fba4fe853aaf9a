#include "process/signal_handler.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include <ara_log_host/sink.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "logging/qel_logging.h"
#include "testing/captured_log.h"
#include "testing/waiting.h"

namespace {

using signal_handler::SignalHandler;
using testing_support::Gate;

class SignalHandlerTest : public ::testing::Test {
protected:
    testing_support::CapturedLog mLog;
    Gate mTerminated;
};

TEST_F(SignalHandlerTest, SigtermCallsTheFunctionOnceAfterSigpipeWasOnlyLogged) {
    {
        SignalHandler handler([this] { mTerminated.Open(); });
        ::raise(SIGPIPE);
        ::raise(SIGTERM);
        mTerminated.Pass();
        ::raise(SIGTERM);  // of no effect: the first was heard
    }
    EXPECT_EQ(mTerminated.Openings(), 1);
    EXPECT_EQ(mLog.Count("SignalHandler: Signal 13 caught"), 1U);
    EXPECT_EQ(mLog.Count("SignalHandler: Signal 15 caught"), 1U);
    EXPECT_TRUE(mLog.Contains("I SignalHandler: SIGTERM received."));
    EXPECT_EQ(mLog.Count("SignalHandler: STOP message received."), 0U);
}

TEST_F(SignalHandlerTest, DestructionStopsTheThreadAndALaterHandlerWorks) {
    const auto makeUnused = [] {
        const SignalHandler unused([] { FAIL() << "nobody sent a signal"; });
    };
    makeUnused();
    EXPECT_TRUE(mLog.Contains("I SignalHandler: STOP message received."));
    EXPECT_EXIT((makeUnused(), ::raise(SIGTERM)), testing::KilledBySignal(SIGTERM), "");

    SignalHandler handler([this] { mTerminated.Open(); });
    ::raise(SIGTERM);
    mTerminated.Pass();
}

TEST_F(SignalHandlerTest, ASigtermBehindTheStopIsHeardAllTheSame) {
    {
        SignalHandler handler([this] { mTerminated.Open(); });
        // The thread ends at this byte as it does at the one of the destructor.
        signal_handler::HandleSignal(SIGRTMIN);
        ASSERT_TRUE(mLog.WaitFor("SignalHandler: STOP message received."));
        ::raise(SIGTERM);
    }
    EXPECT_EQ(mTerminated.Openings(), 1);
    ::raise(SIGTERM);  // of no effect: the first was heard
}

TEST(SignalStormTest, NeitherBlocksNorChangesErrnoNorHidesASigterm) {
    Gate raised;
    // The thread stands still in its first line until the pipe has been full for long.
    const auto previous = ara_log_host::ExchangeSink({[&](auto, const auto&) { raised.Pass(); }});
    const auto raiseMany = [] {
        errno = EDOM;
        for (int i = 0; i < 100000; ++i) {
            ::raise(SIGPIPE);
        }
        EXPECT_EQ(errno, EDOM);
    };
    Gate terminated;
    SignalHandler handler([&] { terminated.Open(); });
    raiseMany();
    ::raise(SIGTERM);
    raised.Open();
    terminated.Pass();
    raiseMany();  // which nobody reads any more
    ara_log_host::ExchangeSink(previous);
}

std::atomic<int> gBrokenPipes{0};

/// Logs to a stderr that nobody reads, and exits with the number of SIGPIPEs that this brought.
[[noreturn]] void LogWithoutReader() {
    ::setenv("ARA_LOG_LEVEL", "verbose", 1);
    qel_logging::QELLogging::InitLogging("TEST");
    Gate terminated;
    auto handler = std::make_unique<SignalHandler>([&] { terminated.Open(); });
    struct sigaction counting {};
    counting.sa_handler = [](int signal) {
        ++gBrokenPipes;
        signal_handler::HandleSignal(signal);
    };
    std::array<int, 2> ends{};
    if (::sigaction(SIGPIPE, &counting, nullptr) != 0 || ::pipe2(ends.data(), O_CLOEXEC) != 0 ||
        ::close(ends[0]) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0) {
        ::_exit(100);
    }
    qel_logging::QELLogging::LogInfo("a line");
    // Behind the SIGPIPE in the pipe: when it arrives, the thread has logged the other.
    ::raise(SIGTERM);
    const bool isOver = terminated.Pass();
    handler.reset();
    ::_exit(isOver ? gBrokenPipes.load() : 101);
}

TEST(SignalHandlerDeathTest, AStderrWithoutReaderRaisesNoSignal) {
    EXPECT_EXIT(LogWithoutReader(), testing::ExitedWithCode(0), "");
}

}  // namespace
