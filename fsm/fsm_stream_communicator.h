#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "fsm/fsm_stream_communicator_if.h"

namespace fsm {

/// The communicator on a socket of the operating system.
class FsmStreamCommunicator : public FsmStreamCommunicatorIf {
public:
    FsmStreamCommunicator(int ioDescriptor, std::string name);
    ~FsmStreamCommunicator() override;

    bool StartFsm(std::shared_ptr<EventDispatcher> dispatcher, std::shared_ptr<Fsm> target,
                  int targetEvent) override;
    bool SetupReadN(std::size_t size) override;
    bool SetupReadOnce(std::size_t size) override;
    bool SetupReadContinued(std::size_t size) override;
    bool SetupMonitoring() override;
    bool SetupIdle() override;
    bool SetupReceiveIoDescriptor() override;
    bool SendIoDescriptor(int ioDescriptor) override;
    ssize_t Write(const unsigned char* buffer, std::size_t length, WriteError* error) override;
    bool ConfigureWritableEvent(bool enable) override;
    int SnatchIODescriptor() override;
    std::shared_ptr<FsmStreamCommunicatorIf> Release() override;

protected:
    void OnTerminate() override;

private:
    void FsmStateIdle(int eventId, int eventInfo);
    void FsmStateMonitoring(int eventId, int eventInfo);
    void FsmStateReadN(int eventId, int eventInfo);
    void FsmStateReadOnce(int eventId, int eventInfo);
    void FsmStateReadContinued(int eventId, int eventInfo);
    void FsmStateReceiveIoDescriptor(int eventId, int eventInfo);

    bool ActiveState() const;
    bool SetupReadCommon(std::size_t size);
    void DiscardRxBuffer();
    void LeaveIdle();
    void EnterIdle();
    void ReadNBytes();
    void FsmStreamCommunicatorOnceOrCont(int eventId, int flags, EventInfo infoToSend);
    void ReadAvailableBytes(EventInfo infoToSend);
    void ReceiveIoDescriptor();
    bool HandleOtherIOFlags(int flags);
    void Report(EventInfo info);
    void ReportData(EventInfo info, std::vector<unsigned char> data, int error = 0);
    void ReportReadError(const char* function, ssize_t result, int error);
    void EndWith(EventInfo info);
    void LogUnknownEvent(const char* function, int eventId, int eventInfo) const;
    void CloseSocket();

    int mIoDescriptor;
    std::vector<unsigned char> mRxBuffer;
    std::size_t mReadSize{0};
    std::size_t mReadCount{0};
};

}  // namespace fsm
