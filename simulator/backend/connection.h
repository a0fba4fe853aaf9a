#pragma once

#include <chrono>
#include <functional>

#include <boost/asio/ip/tcp.hpp>

#include "simulator/backend/enrolment_service.h"
#include "simulator/backend/journal.h"
#include "simulator/backend/scenario.h"

namespace simulator::backend {

/// What all connections share; must outlive them.
struct ConnectionContext {
    const EnrolmentService& service;
    Journal& journal;
    ScenarioSequence scenarios;
    std::chrono::milliseconds timeLimit;
};

/// Serves one request on a connected socket and closes it; then calls `onEnd` once, on the socket's
/// executor.
void ServeConnection(boost::asio::ip::tcp::socket socket, ConnectionContext& context,
                     std::function<void()> onEnd);

}  // namespace simulator::backend
