#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

#include "simulator/backend/enrolment_service.h"
#include "simulator/backend/journal.h"
#include "simulator/backend/scenario.h"

namespace simulator::backend {

struct ServerSettings {
    /// TCP port; 0 for any free one.
    std::uint16_t port = 0;
    /// Time limit of a whole exchange.
    std::chrono::milliseconds timeLimit{30000};
};

/// The backend's HTTP/1.1 server on the loopback interface: one request per connection, up to 64
/// concurrent connections, headers up to 16 KiB, bodies up to 256 KiB. `service` and `journal` must
/// outlive it. One thread, unless noted.
class Server {
public:
    /// Listens at once. Throws std::system_error if it can't.
    Server(const ServerSettings& settings, const EnrolmentService& service, Journal& journal,
           ScenarioSequence scenarios);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t Port() const;

    /// Replaces the scenarios for all later requests. Any thread.
    void SetScenarios(ScenarioSequence scenarios);

    /// Makes SIGTERM and SIGINT stop it.
    void StopOnSignals();

    /// Serves until stopped; then closes all connections. Throws on failures that end the service,
    /// e.g. if the journal can't be written.
    void Run();

    /// Makes `Run` return. Any thread.
    void Stop();

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace simulator::backend
