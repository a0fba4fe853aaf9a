#include "process/signal_handler.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <signal.h>

#include <ara_log_host/sink.h>

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

}  // namespace
