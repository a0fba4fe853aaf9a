#include "vehicle/socks_tls_alert_client_impl.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "logging/qel_logging.h"

namespace socks_rux {

using qel_logging::QELLogging;

namespace {

constexpr std::uint8_t kStartListeningReq = 1;
constexpr std::uint8_t kAlertInd = 2;
constexpr std::chrono::seconds kRetryInterval{10};

}  // namespace

SocksTlsAlertClientImpl::SocksTlsAlertClientImpl(
    std::shared_ptr<vonta_socket::StreamClientConnectorIf> connector)
    : mConnector(std::move(connector)) {}

SocksTlsAlertClientImpl::~SocksTlsAlertClientImpl() {
    SocksTlsAlertClientImpl::StopListening();
    if (mThread.joinable()) {
        mThread.join();
    }
}

unsigned int SocksTlsAlertClientImpl::StartListening(SocksTlsAlertClientCallbackIf* callback) {
    // The listening thread cannot wait for its own end.
    if (mRunning || mListeningThread.load() == std::this_thread::get_id()) {
        return kAlreadyListening;
    }
    // A thread of an earlier start must be gone before mRunning is set: it would take that for its
    // own and go on.
    if (mThread.joinable()) {
        mThread.join();
    }
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mCallback = callback;
        mRunning.store(true, std::memory_order_release);
    }
    try {
        mThread = std::thread(&SocksTlsAlertClientImpl::ListeningThreadHandler, this);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mRunning.store(false, std::memory_order_release);
        mCallback = nullptr;
        throw;
    }
    return kStartOk;
}

void SocksTlsAlertClientImpl::StopListening() {
    Communicator communicator;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mRunning.store(false, std::memory_order_release);
        // Not later, or it would take away the callback of a start that follows at once.
        mCallback = nullptr;
        communicator = mCommunicator;
    }
    mCondition.notify_all();
    if (communicator) {
        communicator->Close();
    }
}

void SocksTlsAlertClientImpl::ListeningThreadHandler() {
    mListeningThread = std::this_thread::get_id();
    while (mRunning) {
        const Communicator communicator = EstablishConnectionToSocksRux();
        if (!AdoptConnection(communicator)) {
            break;
        }
        if (SendStartListeningReq(communicator)) {
            WaitAlerts(communicator);
        } else {
            communicator->Close();
        }
        ReleaseConnection();
    }
    mListeningThread = std::thread::id();
}

SocksTlsAlertClientImpl::Communicator SocksTlsAlertClientImpl::EstablishConnectionToSocksRux() {
    Communicator communicator;
    while (mRunning && !communicator) {
        QELLogging::LogDebug("SocksTlsAlertClient: Try to EstablishConnection to socks-rux");
        communicator = mConnector->Connect();
        if (communicator) {
            QELLogging::LogDebug("SocksTlsAlertClient: Connection established to socks-rux");
            continue;
        }
        std::unique_lock<std::mutex> lock(mMutex);
        mCondition.wait_until(lock, std::chrono::steady_clock::now() + kRetryInterval,
                              [this] { return !mRunning; });
    }
    return communicator;
}

bool SocksTlsAlertClientImpl::AdoptConnection(const Communicator& communicator) {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mRunning) {
        mCommunicator = communicator;
    } else if (communicator) {
        // The stop came too early to see this connection, so it is closed here.
        communicator->Close();
    }
    return mRunning;
}

void SocksTlsAlertClientImpl::ReleaseConnection() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mCommunicator.reset();
}

bool SocksTlsAlertClientImpl::SendStartListeningReq(const Communicator& communicator) const {
    std::vector<std::uint8_t> request;
    InsertUint8(request, kStartListeningReq);
    return communicator->Write(request) == request.size();
}

void SocksTlsAlertClientImpl::WaitAlerts(const Communicator& communicator) {
    while (mRunning) {
        std::uint8_t type = 0;
        std::string operationId;
        std::uint8_t code = 0;
        if (!ReadUint8(communicator, type) || type != kAlertInd ||
            !ReadString(communicator, operationId) || !ReadUint8(communicator, code)) {
            ErrorWhenReadingSocket(communicator);
            return;
        }
        if (SocksTlsAlertClientCallbackIf* callback = mCallback) {
            callback->SocksTlsAlertOccured(std::move(operationId),
                                           static_cast<tls_alert_if::ETlsAlertCode>(code));
        }
    }
}

void SocksTlsAlertClientImpl::ErrorWhenReadingSocket(const Communicator& communicator) {
    if (SocksTlsAlertClientCallbackIf* callback = mCallback) {
        callback->SocksTlsAlertError();
    }
    communicator->Close();
}

}  // namespace socks_rux
