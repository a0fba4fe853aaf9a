#include "fsm/fsm_stream_communicator.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

#include "fsm/fsm_event_data_stream_communicator.h"
#include "fsm/io_event.h"
#include "logging/qel_logging.h"

namespace fsm {

using qel_logging::QELLogging;

namespace {

/// The message that carries a descriptor: one byte of data and one SCM_RIGHTS control entry of 20
/// bytes, with room for a single descriptor.
class DescriptorMessage {
public:
    explicit DescriptorMessage(int ioDescriptor) {
        static_assert(CMSG_LEN(sizeof(int)) == 20);
        mPart.iov_base = &mByte;
        mPart.iov_len = sizeof(mByte);
        mMessage.msg_iov = &mPart;
        mMessage.msg_iovlen = 1;
        mMessage.msg_control = mControl;
        mMessage.msg_controllen = CMSG_LEN(sizeof(int));
        cmsghdr* header = CMSG_FIRSTHDR(&mMessage);
        header->cmsg_len = CMSG_LEN(sizeof(int));
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        std::memcpy(CMSG_DATA(header), &ioDescriptor, sizeof(ioDescriptor));
    }
    DescriptorMessage(const DescriptorMessage&) = delete;
    DescriptorMessage& operator=(const DescriptorMessage&) = delete;

    msghdr& Header() { return mMessage; }

    int IoDescriptor() const {
        int ioDescriptor = 0;
        std::memcpy(&ioDescriptor, mControl + CMSG_LEN(0), sizeof(ioDescriptor));
        return ioDescriptor;
    }

private:
    char mByte{'*'};
    iovec mPart{};
    msghdr mMessage{};
    alignas(cmsghdr) unsigned char mControl[CMSG_SPACE(sizeof(int))]{};
};

}  // namespace

std::shared_ptr<FsmStreamCommunicatorIf> FsmStreamCommunicatorIf::Create(int ioDescriptor,
                                                                         std::string name) {
    return std::make_shared<FsmStreamCommunicator>(ioDescriptor, std::move(name));
}

FsmStreamCommunicator::FsmStreamCommunicator(int ioDescriptor, std::string name)
    : FsmStreamCommunicatorIf(std::move(name)), mIoDescriptor(ioDescriptor) {
    QELLogging::LogDebug(mLogName, "New FsmStreamCommunicator, IODescriptor: ", ioDescriptor);
}

FsmStreamCommunicator::~FsmStreamCommunicator() {
    QELLogging::LogDebug(mLogName, "~FsmStreamCommunicator");
    CloseSocket();
}

bool FsmStreamCommunicator::StartFsm(std::shared_ptr<EventDispatcher> dispatcher,
                                     std::shared_ptr<Fsm> target, int targetEvent) {
    SetupFsm(dispatcher, std::move(target), targetEvent);
    SetNonBlocking(mIoDescriptor);
    if (dispatcher != nullptr) {
        dispatcher->AddIoDescriptor(shared_from_this(), mIoDescriptor, 0);
    }
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoRdhup, true);
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoDisable, true);
    SetFsmState(&FsmStreamCommunicator::FsmStateIdle, "FsmStateIdle");
    return true;
}

bool FsmStreamCommunicator::ActiveState() const {
    return !IsFsmState(&FsmStreamCommunicator::FsmStateNotStarted) &&
           !IsFsmState(&FsmStreamCommunicator::FsmStateTerminated);
}

bool FsmStreamCommunicator::SetupReadCommon(std::size_t size) {
    if (!ActiveState()) {
        QELLogging::LogError(mLogName, "can't setup in state Not Started or Terminated");
        return false;
    }
    if (size == 0) {
        QELLogging::LogError(mLogName, "can't setup to Read size of ", size);
        return false;
    }
    if (mReadCount != 0) {
        QELLogging::LogWarning(mLogName, "RxBuffer not empty, discarding ", mReadCount, " bytes");
        mRxBuffer.clear();
    }
    LeaveIdle();
    mRxBuffer.resize(size);
    mReadSize = size;
    mReadCount = 0;
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoRead, true);
    return true;
}

void FsmStreamCommunicator::LeaveIdle() {
    if (IsFsmState(&FsmStreamCommunicator::FsmStateIdle)) {
        ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoDisable, false);
    }
}

bool FsmStreamCommunicator::SetupReadN(std::size_t size) {
    if (!SetupReadCommon(size)) {
        return false;
    }
    SetFsmState(&FsmStreamCommunicator::FsmStateReadN, "FsmStateReadN");
    return true;
}

bool FsmStreamCommunicator::SetupReadOnce(std::size_t size) {
    if (!SetupReadCommon(size)) {
        return false;
    }
    SetFsmState(&FsmStreamCommunicator::FsmStateReadOnce, "FsmStateReadOnce");
    return true;
}

bool FsmStreamCommunicator::SetupReadContinued(std::size_t size) {
    if (!SetupReadCommon(size)) {
        return false;
    }
    SetFsmState(&FsmStreamCommunicator::FsmStateReadContinued, "FsmStateReadContinued");
    return true;
}

void FsmStreamCommunicator::DiscardRxBuffer() {
    if (!mRxBuffer.empty() && IsFsmState(&FsmStreamCommunicator::FsmStateReadN)) {
        QELLogging::LogWarning(mLogName, "RxBuffer not empty, discarding ", mRxBuffer.size(),
                               " bytes");
    }
    mRxBuffer.clear();
    mReadCount = 0;
}

bool FsmStreamCommunicator::SetupMonitoring() {
    if (!ActiveState()) {
        return false;
    }
    DiscardRxBuffer();
    LeaveIdle();
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoRead, false);
    SetFsmState(&FsmStreamCommunicator::FsmStateMonitoring, "FsmStateMonitoring");
    return true;
}

bool FsmStreamCommunicator::SetupIdle() {
    if (!ActiveState()) {
        return false;
    }
    DiscardRxBuffer();
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoDisable, true);
    SetFsmState(&FsmStreamCommunicator::FsmStateIdle, "FsmStateIdle");
    return true;
}

bool FsmStreamCommunicator::SetupReceiveIoDescriptor() {
    if (!ActiveState()) {
        return false;
    }
    LeaveIdle();
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoRead, true);
    SetFsmState(&FsmStreamCommunicator::FsmStateReceiveIoDescriptor, "FsmStateReceiveIoDescriptor");
    return true;
}

void FsmStreamCommunicator::FsmStateIdle(int eventId, int eventInfo) {
    QELLogging::LogError(mLogName, "FsmStateIdle no events expected in this state. event+info ",
                         eventId, " ", eventInfo);
}

void FsmStreamCommunicator::FsmStateMonitoring(int eventId, int eventInfo) {
    if (eventId != 0) {
        LogUnknownEvent("FsmStateMonitoring", eventId, eventInfo);
        return;
    }
    HandleOtherIOFlags(eventInfo);
}

void FsmStreamCommunicator::FsmStateReadN(int eventId, int eventInfo) {
    if (eventId != 0) {
        LogUnknownEvent("FsmStateReadN", eventId, eventInfo);
        return;
    }
    if (!IoEventReadable(eventInfo)) {
        HandleOtherIOFlags(eventInfo);
        return;
    }
    ReadNBytes();
}

void FsmStreamCommunicator::ReadNBytes() {
    const ssize_t result =
        recv(mIoDescriptor, mRxBuffer.data() + mReadCount, mReadSize - mReadCount, 0);
    if (result < 0) {
        ReportReadError("FsmStateReadN", result, errno);
        return;
    }
    if (result == 0) {
        EndWith(eConnectionClosed);
        return;
    }
    mReadCount += static_cast<std::size_t>(result);
    if (mReadCount < mReadSize) {
        return;
    }
    ReportData(eReadNComplete, std::move(mRxBuffer));
    mRxBuffer.clear();
    mReadCount = 0;
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoDisable, true);
    SetFsmState(&FsmStreamCommunicator::FsmStateIdle, "FsmStateIdle");
}

void FsmStreamCommunicator::FsmStateReadOnce(int eventId, int eventInfo) {
    FsmStreamCommunicatorOnceOrCont(eventId, eventInfo, eReadOnceData);
    if (IsFsmState(&FsmStreamCommunicator::FsmStateReadOnce)) {
        EnterIdle();
    }
}

void FsmStreamCommunicator::EnterIdle() {
    SetFsmState(&FsmStreamCommunicator::FsmStateIdle, "FsmStateIdle");
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoDisable, true);
}

void FsmStreamCommunicator::FsmStateReadContinued(int eventId, int eventInfo) {
    FsmStreamCommunicatorOnceOrCont(eventId, eventInfo, eReadContinuedData);
    if (IsFsmState(&FsmStreamCommunicator::FsmStateReadContinued)) {
        mRxBuffer.resize(mReadSize);
    }
}

void FsmStreamCommunicator::FsmStreamCommunicatorOnceOrCont(int eventId, int flags,
                                                            EventInfo infoToSend) {
    if (eventId != 0) {
        QELLogging::LogError(mLogName, "FsmStreamCommunicatorOnceOrCont unknown event+info ",
                             eventId, " ", flags, " ", infoToSend);
        return;
    }
    if (!IoEventReadable(flags)) {
        HandleOtherIOFlags(flags);
        return;
    }
    ReadAvailableBytes(infoToSend);
}

void FsmStreamCommunicator::ReadAvailableBytes(EventInfo infoToSend) {
    const ssize_t result = recv(mIoDescriptor, mRxBuffer.data(), mReadSize, 0);
    if (result < 0) {
        ReportReadError("FsmStreamCommunicatorOnceOrCont", result, errno);
        return;
    }
    if (result == 0) {
        EndWith(eConnectionClosed);
        return;
    }
    mRxBuffer.resize(static_cast<std::size_t>(result));
    mReadCount = 0;
    ReportData(infoToSend, std::move(mRxBuffer));
    mRxBuffer.clear();
}

void FsmStreamCommunicator::FsmStateReceiveIoDescriptor(int eventId, int eventInfo) {
    if (eventId != 0) {
        LogUnknownEvent("FsmStateReceiveIoDescriptor", eventId, eventInfo);
    } else if (!IoEventReadable(eventInfo)) {
        HandleOtherIOFlags(eventInfo);
    } else {
        ReceiveIoDescriptor();
    }
    if (IsFsmState(&FsmStreamCommunicator::FsmStateReceiveIoDescriptor)) {
        EnterIdle();
    }
}

void FsmStreamCommunicator::ReceiveIoDescriptor() {
    DescriptorMessage message(0);
    errno = 0;
    const ssize_t result = recvmsg(mIoDescriptor, &message.Header(), MSG_CMSG_CLOEXEC);
    if (result < 1) {
        ReportReadError("FsmStateReceiveIoDescriptor", result, errno);
        return;
    }
    const int received = message.IoDescriptor();
    QELLogging::LogInfo(mLogName, "FsmStateReceiveIoDescriptorfileDescriptor: ", received);
    const auto bits = static_cast<unsigned int>(received);
    ReportData(eIoDescriptorReceived,
               {static_cast<unsigned char>(bits >> 8U), static_cast<unsigned char>(bits)});
}

bool FsmStreamCommunicator::HandleOtherIOFlags(int flags) {
    if (IoEventWritable(flags)) {
        Report(eWritable);
        return true;
    }
    if (IoEventHangup(flags) || IoEventRdhup(flags)) {
        EndWith(eConnectionClosed);
    } else if (IoEventError(flags) || IoEventInvalid(flags)) {
        QELLogging::LogWarning(mLogName, "HandleOtherIOFlags IO error ", PollFlagString(flags));
        EndWith(eIoError);
    } else {
        QELLogging::LogError(mLogName, "HandleOtherIOFlags FSM Error ", flags);
        EndWith(eFsmError);
    }
    return false;
}

void FsmStreamCommunicator::EndWith(EventInfo info) {
    Report(info);
    StopFsm();
}

void FsmStreamCommunicator::Report(EventInfo info) {
    RaiseEvent(mTarget, mTargetEvent, info, nullptr);
}

void FsmStreamCommunicator::ReportData(EventInfo info, std::vector<unsigned char> data, int error) {
    auto payload = std::make_unique<FsmEventDataStreamCommunicator>();
    payload->data = std::move(data);
    payload->error = error;
    RaiseEvent(mTarget, mTargetEvent, info, std::move(payload));
}

void FsmStreamCommunicator::ReportReadError(const char* function, ssize_t result, int error) {
    QELLogging::LogError(mLogName, function, " eReadError ", result, " errno ", error);
    ReportData(eReadError, {}, error);
}

void FsmStreamCommunicator::LogUnknownEvent(const char* function, int eventId,
                                            int eventInfo) const {
    QELLogging::LogError(mLogName, function, " unknown event+info ", eventId, " ", eventInfo);
}

ssize_t FsmStreamCommunicator::Write(const unsigned char* buffer, std::size_t length,
                                     WriteError* error) {
    WriteError reason = eWriteError;
    if (ActiveState()) {
        errno = 0;
        const ssize_t written = send(mIoDescriptor, buffer, length, MSG_NOSIGNAL);
        if (written > 0) {
            return written;
        }
        const int sendError = errno;
        QELLogging::LogDebug(mLogName, "send() error: ", sendError);
        reason = sendError == EAGAIN ? eWouldBlock : eWriteError;
    }
    if (error != nullptr) {
        *error = reason;
    }
    return -1;
}

bool FsmStreamCommunicator::ConfigureWritableEvent(bool enable) {
    if (!ActiveState()) {
        return false;
    }
    ConfigureIoDescriptor(mIoDescriptor, EventDispatcher::kIoWrite, enable);
    return true;
}

bool FsmStreamCommunicator::SendIoDescriptor(int ioDescriptor) {
    if (!ActiveState()) {
        return false;
    }
    DescriptorMessage message(ioDescriptor);
    return sendmsg(mIoDescriptor, &message.Header(), MSG_NOSIGNAL) > 0;
}

int FsmStreamCommunicator::SnatchIODescriptor() {
    const int ioDescriptor = std::exchange(mIoDescriptor, -1);
    StopFsm();
    return ioDescriptor;
}

std::shared_ptr<FsmStreamCommunicatorIf> FsmStreamCommunicator::Release() {
    auto successor = std::make_shared<FsmStreamCommunicator>(mIoDescriptor, mLogName);
    mIoDescriptor = -1;
    StopFsm();
    return successor;
}

void FsmStreamCommunicator::OnTerminate() {
    QELLogging::LogDebug(mLogName, "OnTerminate");
    if (mReadCount != 0) {
        QELLogging::LogWarning(mLogName, "RxBuffer not empty, discarding ", mReadCount, " bytes");
        mRxBuffer.clear();
    }
    CloseSocket();
}

void FsmStreamCommunicator::CloseSocket() {
    if (mIoDescriptor < 0) {
        return;
    }
    if (shutdown(mIoDescriptor, SHUT_RDWR) != 0) {
        QELLogging::LogError(mLogName, "shutdown() failed");
    }
    if (close(mIoDescriptor) != 0) {
        QELLogging::LogError(mLogName, "close() failed");
    }
    mIoDescriptor = -1;
}

}  // namespace fsm
