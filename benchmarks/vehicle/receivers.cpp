#include "benchmarks/vehicle/receivers.h"

#include <array>
#include <atomic>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "benchmarks/framework/harness.h"
#include "client/clamp_control_if.h"
#include "client/immobilizer_if.h"
#include "client/tls_alerts_if.h"
#include "fsm/event_dispatcher.h"
#include "fsm/fsm.h"

namespace vehicle_bench {

namespace {

using framework_bench::Check;
using framework_bench::CheckCall;

/// The machine that the inputs report to, as the client machine does: each report is an
/// asynchronous event.
class Machine : public fsm::Fsm {
public:
    Machine() : Fsm("Machine") {}

    void StartFsm(const std::shared_ptr<fsm::EventDispatcher>& dispatcher) {
        SetupFsm(dispatcher, nullptr, 0);
        SetFsmState(&Machine::StateCounting, "StateCounting");
    }

    /// Library threads.
    void Report() { RaiseAsyncEvent(1, 0, nullptr); }

    void Expect(int count, const std::function<void()>& delivered) {
        mLeft = count;
        mDelivered = &delivered;
    }
    bool IsExpecting() const { return mLeft > 0; }

protected:
    void OnTerminate() override {}

private:
    void StateCounting(int /*eventId*/, int /*eventInfo*/) {
        --mLeft;
        (*mDelivered)();
    }

    int mLeft = 0;
    const std::function<void()>* mDelivered = nullptr;
};

class InputReceiver : public Receiver {
public:
    ~InputReceiver() override { mMachine->StopFsm(); }

    void Receive(int count, const std::function<void()>& delivered) override {
        mMachine->Expect(count, delivered);
        while (mMachine->IsExpecting()) {
            mDispatcher->DispatchStep();
        }
    }

protected:
    InputReceiver() { mMachine->StartFsm(mDispatcher); }

    void Report() { mMachine->Report(); }

private:
    std::shared_ptr<fsm::EventDispatcher> mDispatcher =
        std::make_shared<fsm::EventDispatcher>("EventDispatcher", true);
    std::shared_ptr<Machine> mMachine = std::make_shared<Machine>();
};

class ClampReceiver : public InputReceiver, private vintrel::ClampControlCbIf {
public:
    ClampReceiver() { Check(mInput->Subscribe(), "Subscribe"); }

private:
    void ClampStateChangeCb(bool /*clamp15On*/) override { Report(); }

    std::shared_ptr<vintrel::ClampControlIf> mInput = vintrel::ClampControlIf::Create(*this);
};

class ImmobilizerReceiver : public InputReceiver, private vintrel::ImmobilizerCbIf {
public:
    ImmobilizerReceiver() { Check(mInput->ImmobilizerInit(), "ImmobilizerInit"); }

private:
    void ImmobilizerVinReceivedCb(std::string /*vin*/) override {}
    void ImmobilizerConnectionStateChangeCb(bool /*connected*/) override { Report(); }

    std::shared_ptr<vintrel::ImmobilizerIf> mInput = vintrel::ImmobilizerIf::Create(*this);
};

class AlertReceiver : public InputReceiver, private vintrel::TlsAlertsCbIf {
public:
    AlertReceiver() { mInput->Start(this); }

private:
    void TlsAlertNotifyCb(std::string /*operationId*/,
                          tls_alert_if::ETlsAlertCode /*code*/) override {
        Report();
    }

    std::shared_ptr<vintrel::TlsAlertsIf> mInput = vintrel::TlsAlertsIf::Create();
};

class BareReceiver : public Receiver {
public:
    explicit BareReceiver(int socket) : mSocket(dup(socket)) {
        CheckCall(pipe(mPipe.data()), "pipe");
        mThread = std::thread([this] { HandOver(); });
    }

    ~BareReceiver() override {
        mEnding = true;
        shutdown(mSocket, SHUT_RD);
        mThread.join();
        for (const int descriptor : {mSocket, mPipe[0], mPipe[1]}) {
            close(descriptor);
        }
    }

    void Receive(int count, const std::function<void()>& delivered) override {
        for (int i = 0; i < count; ++i) {
            pollfd ready{mPipe[0], POLLIN, 0};
            CheckCall(poll(&ready, 1, -1), "poll");
            char byte = 0;
            CheckCall(read(mPipe[0], &byte, 1), "read");
            delivered();
        }
    }

private:
    void HandOver() {
        char byte = 0;
        while (recv(mSocket, &byte, 1, 0) == 1 && !mEnding) {
            CheckCall(write(mPipe[1], &byte, 1), "write");
        }
    }

    int mSocket;
    std::array<int, 2> mPipe{};
    std::atomic<bool> mEnding{false};
    std::thread mThread;
};

/// The far end reports once by itself as soon as the input is connected.
std::unique_ptr<Receiver> Connected(std::unique_ptr<Receiver> receiver) {
    receiver->Receive(1, [] {});
    return receiver;
}

}  // namespace

std::unique_ptr<Receiver> MakeClampReceiver() {
    return Connected(std::make_unique<ClampReceiver>());
}

std::unique_ptr<Receiver> MakeImmobilizerReceiver() {
    return Connected(std::make_unique<ImmobilizerReceiver>());
}

std::unique_ptr<Receiver> MakeAlertReceiver() {
    return Connected(std::make_unique<AlertReceiver>());
}

std::unique_ptr<Receiver> MakeBareReceiver(int socket) {
    return std::make_unique<BareReceiver>(socket);
}

}  // namespace vehicle_bench
