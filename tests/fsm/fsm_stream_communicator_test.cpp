#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <posix/unique_fd.h>

#include "fsm/fsm_event_data_stream_communicator.h"
#include "fsm/fsm_stream_communicator_if.h"
#include "testing/captured_log.h"
#include "testing/recorder_fsm.h"
#include "testing/virtual_time_dispatcher.h"

namespace {

using fsm::FsmStreamCommunicatorIf;
using posix::UniqueFd;
using testing_support::RecorderFsm;
using testing_support::VirtualTimeDispatcher;

/// What the target heard: the event info and the bytes.
using Reports = std::vector<std::pair<int, std::string>>;

class FsmStreamCommunicatorTest : public testing::Test {
protected:
    FsmStreamCommunicatorTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        socket = ends[0];
        peer = UniqueFd(ends[1]);
        communicator = FsmStreamCommunicatorIf::Create(socket, "Comm");
        target->Start(dispatcher);
        target->onEvent = [this](int eventId, int eventInfo) {
            EXPECT_EQ(eventId, 42);
            const auto data = dispatcher->TakeEventData();
            const auto* read = dynamic_cast<fsm::FsmEventDataStreamCommunicator*>(data.get());
            reports.emplace_back(
                eventInfo,
                read == nullptr ? "" : std::string(read->data.begin(), read->data.end()));
            error = read == nullptr ? -1 : read->error;
        };
        EXPECT_TRUE(communicator->StartFsm(dispatcher, target, 42));
    }
    ~FsmStreamCommunicatorTest() override {
        communicator->StopFsm();
        target->StopFsm();
        ClosePeer();
    }

    void FromPeer(const std::string& bytes) {
        ASSERT_EQ(send(peer.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        dispatcher->RunPending();
    }
    void ClosePeer() {
        peer = UniqueFd();
        dispatcher->RunPending();
    }
    /// Delivers an event to the communicator's current state.
    void Deliver(int eventId, int flags) {
        dispatcher->RaiseEvent(nullptr, communicator, eventId, flags, nullptr);
        dispatcher->RunPending();
    }
    bool IsOpen(int descriptor) const { return fcntl(descriptor, F_GETFD) >= 0; }

    testing_support::CapturedLog log;
    std::shared_ptr<VirtualTimeDispatcher> dispatcher =
        std::make_shared<VirtualTimeDispatcher>("D", false);
    std::shared_ptr<RecorderFsm> target = std::make_shared<RecorderFsm>("Target");
    std::shared_ptr<FsmStreamCommunicatorIf> communicator;
    Reports reports;
    int error = -1;
    int socket = -1;
    UniqueFd peer;
};

TEST_F(FsmStreamCommunicatorTest, NBytesInPiecesComeAsOneReport) {
    EXPECT_TRUE(communicator->SetupReadN(6));
    FromPeer("ab");
    FromPeer("cd");
    EXPECT_TRUE(reports.empty());
    FromPeer("efgh");
    EXPECT_EQ(reports, (Reports{{1, "abcdef"}}));
    EXPECT_EQ(communicator->GetStateName(), "FsmStateIdle");
    EXPECT_TRUE(communicator->SetupReadOnce(100));
    dispatcher->RunPending();
    EXPECT_EQ(reports.back(), (Reports::value_type{2, "gh"})) << "the rest waited in the socket";
    EXPECT_EQ(communicator->GetStateName(), "FsmStateIdle");
}

TEST_F(FsmStreamCommunicatorTest, ContinuedReadingReportsAgainAndAgain) {
    EXPECT_TRUE(communicator->SetupReadContinued(4));
    FromPeer("abcdef");
    FromPeer("g");
    EXPECT_EQ(reports, (Reports{{3, "abcd"}, {3, "ef"}, {3, "g"}}));
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(communicator->SetupIdle());
    FromPeer("hidden");
    ClosePeer();
    EXPECT_EQ(reports.size(), 3U) << "idle does not even see a hang-up";
    EXPECT_TRUE(communicator->SetupReadContinued(100));
    dispatcher->RunPending();
    EXPECT_EQ(reports[3], (Reports::value_type{3, "hidden"})) << "bytes go before the hang-up";
    EXPECT_EQ(reports[4], (Reports::value_type{0, ""}));
    EXPECT_EQ(communicator->GetStateName(), "FsmStateTerminated");
    EXPECT_FALSE(IsOpen(socket));
}

TEST_F(FsmStreamCommunicatorTest, AnUnfinishedReadIsDiscardedWithAWarning) {
    EXPECT_TRUE(communicator->SetupReadN(10));
    FromPeer("abc");
    EXPECT_TRUE(communicator->SetupReadN(5));
    EXPECT_TRUE(log.Contains("W Comm: RxBuffer not empty, discarding 3 bytes"));
    EXPECT_TRUE(communicator->SetupMonitoring());
    EXPECT_TRUE(log.Contains("W Comm: RxBuffer not empty, discarding 5 bytes"))
        << "the size asked for";
    log.Clear();
    EXPECT_TRUE(communicator->SetupReadContinued(5));
    EXPECT_TRUE(communicator->SetupIdle());
    EXPECT_TRUE(log.Lines('W').empty());

    EXPECT_TRUE(communicator->SetupReadN(10));
    FromPeer("ab");
    ClosePeer();
    EXPECT_EQ(reports, (Reports{{0, ""}}));
    EXPECT_TRUE(log.Contains("W Comm: RxBuffer not empty, discarding 2 bytes"));
    EXPECT_TRUE(log.Contains("D Comm: OnTerminate"));
}

TEST_F(FsmStreamCommunicatorTest, MonitoringSeesTheHangupButReadsNothing) {
    EXPECT_TRUE(communicator->SetupMonitoring());
    FromPeer("unread");
    EXPECT_TRUE(reports.empty());
    shutdown(peer.Get(), SHUT_WR);
    dispatcher->RunPending();
    EXPECT_EQ(reports, (Reports{{0, ""}}));
    EXPECT_EQ(communicator->GetDispatcher(), nullptr);
}

TEST_F(FsmStreamCommunicatorTest, AFullSocketWouldBlockUntilItIsWritable) {
    const std::vector<unsigned char> block(65536, 'x');
    FsmStreamCommunicatorIf::WriteError reason{};
    std::size_t written = 0;
    for (ssize_t result = 0; result >= 0;) {
        result = communicator->Write(block.data(), block.size(), &reason);
        written += result > 0 ? static_cast<std::size_t>(result) : 0;
    }
    EXPECT_EQ(reason, FsmStreamCommunicatorIf::eWouldBlock);
    EXPECT_TRUE(log.Contains("D Comm: send() error: " + std::to_string(EAGAIN)));
    EXPECT_TRUE(communicator->SetupMonitoring());
    EXPECT_TRUE(communicator->ConfigureWritableEvent(true));
    dispatcher->RunPending();
    EXPECT_TRUE(reports.empty());

    target->onEvent = [this](int, int info) {
        reports.emplace_back(info, "");
        communicator->ConfigureWritableEvent(false);
    };
    std::vector<char> drain(written);
    ASSERT_EQ(recv(peer.Get(), drain.data(), drain.size(), MSG_WAITALL),
              static_cast<ssize_t>(written));
    dispatcher->DispatchStep();
    dispatcher->RunPending();
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.front().first, 4);
}

TEST_F(FsmStreamCommunicatorTest, WritingToAClosedPeerIsAnErrorAndNoSignal) {
    peer = UniqueFd();
    const unsigned char byte = 'x';
    FsmStreamCommunicatorIf::WriteError reason = FsmStreamCommunicatorIf::eWouldBlock;
    EXPECT_EQ(communicator->Write(&byte, 1, &reason), -1);
    EXPECT_EQ(reason, FsmStreamCommunicatorIf::eWriteError);
    EXPECT_EQ(communicator->Write(&byte, 1, nullptr), -1);
    EXPECT_FALSE(communicator->SendIoDescriptor(STDIN_FILENO));
}

TEST_F(FsmStreamCommunicatorTest, AReadErrorIsReportedWithItsNumber) {
    EXPECT_TRUE(communicator->SetupReadN(4));
    // A quiet pipe behind the same number is no socket to receive from.
    std::array<int, 2> quiet{};
    ASSERT_EQ(pipe2(quiet.data(), O_CLOEXEC), 0);
    ASSERT_EQ(dup3(quiet[0], socket, O_CLOEXEC), socket);
    Deliver(0, POLLIN);
    EXPECT_EQ(reports, (Reports{{6, ""}}));
    EXPECT_EQ(error, ENOTSOCK);
    EXPECT_TRUE(
        log.Contains("E Comm: FsmStateReadN eReadError -1 errno " + std::to_string(ENOTSOCK)));
    EXPECT_EQ(communicator->GetStateName(), "FsmStateReadN");
    EXPECT_TRUE(communicator->SetupReadOnce(4));
    Deliver(0, POLLIN);
    EXPECT_TRUE(log.Contains("E Comm: FsmStreamCommunicatorOnceOrCont eReadError -1 errno " +
                             std::to_string(ENOTSOCK)));
    EXPECT_EQ(communicator->GetStateName(), "FsmStateIdle");
    communicator->StopFsm();
    EXPECT_TRUE(log.Contains("E Comm: shutdown() failed"));
    EXPECT_FALSE(IsOpen(socket)) << "closed all the same";
    close(quiet[0]);
    close(quiet[1]);
}

TEST_F(FsmStreamCommunicatorTest, FlagsOtherThanReadableAreSortedOut) {
    const std::vector<std::pair<int, int>> ends{
        {POLLOUT | POLLHUP, 4}, {POLLHUP, 0}, {POLLRDHUP, 0}, {POLLERR, 7}, {POLLNVAL, 7}, {2, 8}};
    for (const auto& [flags, info] : ends) {
        reports.clear();
        std::array<int, 2> line{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, line.data()), 0);
        const auto machine = FsmStreamCommunicatorIf::Create(line[0], "Other");
        machine->StartFsm(dispatcher, target, 42);
        EXPECT_TRUE(machine->SetupReadContinued(1));
        dispatcher->RaiseEvent(nullptr, machine, 0, flags, nullptr);
        dispatcher->DispatchStep();
        EXPECT_EQ(machine->GetStateName(),
                  info == 4 ? "FsmStateReadContinued" : "FsmStateTerminated");
        machine->StopFsm();
        dispatcher->RunPending();
        close(line[1]);
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].first, info) << flags;
    }
    EXPECT_TRUE(log.Contains("W Other: HandleOtherIOFlags IO error POLLERR "));
    EXPECT_TRUE(log.Contains("E Other: HandleOtherIOFlags FSM Error 2"));
}

TEST_F(FsmStreamCommunicatorTest, WithoutATargetItEndsAllTheSame) {
    communicator->SetTarget(nullptr, 0);
    EXPECT_TRUE(communicator->SetupMonitoring());
    ClosePeer();
    EXPECT_EQ(communicator->GetDispatcher(), nullptr);
    EXPECT_FALSE(IsOpen(socket));
    EXPECT_TRUE(reports.empty());
    EXPECT_TRUE(log.Lines('F').empty());
}

TEST_F(FsmStreamCommunicatorTest, EventsThatAStateDoesNotKnowAreRefused) {
    Deliver(0, 1);
    EXPECT_TRUE(communicator->SetupMonitoring());
    Deliver(3, 1);
    EXPECT_TRUE(communicator->SetupReadN(1));
    Deliver(3, 1);
    EXPECT_TRUE(communicator->SetupReadContinued(1));
    Deliver(3, 1);
    EXPECT_TRUE(communicator->SetupReceiveIoDescriptor());
    Deliver(3, 1);
    const std::vector<std::string> expected{
        "Comm: FsmStateIdle no events expected in this state. event+info 0 1",
        "Comm: FsmStateMonitoring unknown event+info 3 1",
        "Comm: FsmStateReadN unknown event+info 3 1",
        "Comm: FsmStreamCommunicatorOnceOrCont unknown event+info 3 1 3",
        "Comm: FsmStateReceiveIoDescriptor unknown event+info 3 1"};
    EXPECT_EQ(log.Lines('E'), expected);
    EXPECT_EQ(communicator->GetStateName(), "FsmStateIdle") << "left in every case";
    EXPECT_TRUE(reports.empty());
}

TEST_F(FsmStreamCommunicatorTest, SetupsAreRefusedForNoBytesAndWhenNotActive) {
    EXPECT_FALSE(communicator->SetupReadN(0));
    EXPECT_TRUE(log.Contains("E Comm: can't setup to Read size of 0"));
    EXPECT_EQ(communicator->GetStateName(), "FsmStateIdle");
    communicator->StopFsm();
    EXPECT_FALSE(IsOpen(socket));
    EXPECT_FALSE(communicator->SetupReadOnce(1));
    EXPECT_TRUE(log.Contains("E Comm: can't setup in state Not Started or Terminated"));
    EXPECT_FALSE(communicator->SetupMonitoring() || communicator->SetupIdle() ||
                 communicator->SetupReceiveIoDescriptor() ||
                 communicator->ConfigureWritableEvent(true) || communicator->SendIoDescriptor(0));
    EXPECT_EQ(communicator->Write(nullptr, 0, nullptr), -1);
}

TEST_F(FsmStreamCommunicatorTest, ADescriptorIsPassedToThePeer) {
    const auto receiver = FsmStreamCommunicatorIf::Create(peer.Release(), "Receiver");
    receiver->StartFsm(dispatcher, target, 42);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const int high = fcntl(ends[0], F_DUPFD_CLOEXEC, 300);
    ASSERT_GE(high, 300);
    // All numbers up to 300 are taken, so that the passed one gets a number of two bytes.
    std::vector<UniqueFd> taken;
    while (taken.empty() || taken.back().Get() < 300) {
        taken.emplace_back(fcntl(ends[0], F_DUPFD_CLOEXEC, 0));
        ASSERT_TRUE(taken.back().IsValid());
    }
    for (const int fd : {ends[0], ends[1], high}) {
        taken.emplace_back(fd);
    }

    EXPECT_TRUE(receiver->SetupReceiveIoDescriptor());
    EXPECT_TRUE(communicator->SendIoDescriptor(high));
    dispatcher->RunPending();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].first, 5);
    ASSERT_EQ(reports[0].second.size(), 2U);
    const int received = static_cast<unsigned char>(reports[0].second[0]) * 256 +
                         static_cast<unsigned char>(reports[0].second[1]);
    EXPECT_GT(received, 300);
    taken.emplace_back(received);
    struct stat sent {};
    struct stat got {};
    ASSERT_EQ(fstat(high, &sent), 0);
    ASSERT_EQ(fstat(received, &got), 0);
    EXPECT_EQ(sent.st_ino, got.st_ino);
    EXPECT_NE(fcntl(received, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(log.Count("Receiver: FsmStateReceiveIoDescriptorfileDescriptor: " +
                        std::to_string(received)),
              1U);
    EXPECT_EQ(receiver->GetStateName(), "FsmStateIdle");

    EXPECT_TRUE(receiver->SetupReceiveIoDescriptor());
    communicator->StopFsm();
    dispatcher->RunPending();
    EXPECT_EQ(reports.back().first, 6) << "a closing peer is a read error here";
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(log.Contains("E Receiver: FsmStateReceiveIoDescriptor eReadError 0 errno 0"));
    receiver->StopFsm();
}

TEST_F(FsmStreamCommunicatorTest, TheSocketCanBeSnatchedOrPassedOn) {
    const auto successor = communicator->Release();
    EXPECT_EQ(communicator->GetStateName(), "FsmStateTerminated");
    EXPECT_EQ(successor->GetName(), "Comm: ");
    EXPECT_EQ(successor->GetStateName(), "FsmStateNotStarted");
    EXPECT_TRUE(successor->StartFsm(dispatcher, target, 42));
    EXPECT_TRUE(successor->SetupReadOnce(10));
    FromPeer("still open");
    EXPECT_EQ(reports, (Reports{{2, "still open"}}));

    const int snatched = successor->SnatchIODescriptor();
    EXPECT_EQ(snatched, socket);
    EXPECT_TRUE(IsOpen(snatched));
    EXPECT_EQ(send(snatched, "x", 1, MSG_NOSIGNAL), 1) << "not shut down either";

    FsmStreamCommunicatorIf::Create(snatched, "Unstarted").reset();
    EXPECT_FALSE(IsOpen(snatched)) << "it is the owner from its construction on";
    EXPECT_TRUE(log.Contains("D Unstarted: ~FsmStreamCommunicator"));
}

}  // namespace
