#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include <vonta_socket/stream_client_connector_if.h>
#include <vonta_socket/stream_communicator_if.h>
#include <vonta_socket/stream_protocol.h>

#include "vehicle/socks_tls_alert_client_if.h"

namespace socks_rux {

/// Keeps a connection to the daemon alive and reads its alerts.
///
/// On each connection one byte, 1, asks the daemon to report. An alert is then one byte, 2, the
/// operation id as a string of vonta_socket::StreamProtocol, and one byte, the alert code. A failed
/// attempt to connect is repeated after 10 seconds, without end.
class SocksTlsAlertClientImpl : public SocksTlsAlertClientIf, public vonta_socket::StreamProtocol {
public:
    explicit SocksTlsAlertClientImpl(
        std::shared_ptr<vonta_socket::StreamClientConnectorIf> connector);
    /// Stops, and waits for the listening thread.
    ~SocksTlsAlertClientImpl() override;

    SocksTlsAlertClientImpl(const SocksTlsAlertClientImpl&) = delete;
    SocksTlsAlertClientImpl& operator=(const SocksTlsAlertClientImpl&) = delete;

    unsigned int StartListening(SocksTlsAlertClientCallbackIf* callback) override;
    void StopListening() override;

private:
    using Communicator = std::shared_ptr<vonta_socket::StreamCommunicatorIf>;

    void ListeningThreadHandler();
    Communicator EstablishConnectionToSocksRux();
    /// Makes a new connection the one that a stop closes. False if the stop has come before.
    bool AdoptConnection(const Communicator& communicator);
    /// Lets go of a connection that has ended, so that its descriptor is closed before the next.
    void ReleaseConnection();
    bool SendStartListeningReq(const Communicator& communicator) const;
    void WaitAlerts(const Communicator& communicator);
    void ErrorWhenReadingSocket(const Communicator& communicator);

    std::shared_ptr<vonta_socket::StreamClientConnectorIf> mConnector;
    Communicator mCommunicator;                                      ///< guarded by mMutex
    std::atomic<SocksTlsAlertClientCallbackIf*> mCallback{nullptr};  ///< changes under mMutex
    std::thread mThread;
    std::atomic<std::thread::id> mListeningThread{};
    std::atomic<bool> mRunning{false};  ///< changes under mMutex
    std::mutex mMutex;
    std::condition_variable mCondition;
};

}  // namespace socks_rux
