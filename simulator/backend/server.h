#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

#include "simulator/backend/enrolment_service.h"
#include "simulator/backend/journal.h"
#include "simulator/backend/scenario.h"

namespace simulator::backend {

struct ServerSettings {
    /// 0 for one that the system chooses.
    std::uint16_t port = 0;
    /// For a whole exchange.
    std::chrono::milliseconds timeLimit{30000};
};

/// The backend's HTTP/1.1 server on the loopback interface: one request a connection, at most 64
/// connections at a time, headers up to 16 KiB, bodies up to 256 KiB. `service` and `journal` must
/// outlive it.
class Server {
public:
    /// Listens from here on. Throws `std::system_error` when it cannot.
    Server(const ServerSettings& settings, const EnrolmentService& service, Journal& journal,
           ScenarioSequence scenarios);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t Port() const;

    /// The scenarios for the requests from now on. Any thread may call it.
    void SetScenarios(ScenarioSequence scenarios);

    /// Lets SIGTERM and SIGINT stop it.
    void StopOnSignals();

    /// Serves until it is stopped; then all connections are closed. Throws what ends the service,
    /// e.g. a journal that cannot be written.
    void Run();

    /// Any thread may call it.
    void Stop();

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace simulator::backend
