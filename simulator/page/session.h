#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <nlohmann/json.hpp>

#include "simulator/page/access.h"
#include "simulator/page/unit.h"

namespace simulator::page {

/// What all sessions share. It outlives them; the units need not outlive the loop.
struct SessionContext {
    explicit SessionContext(std::uint16_t port) : access(port) {}

    Access access;
    std::vector<std::unique_ptr<Unit>> units;
    std::size_t connections{0};
};

/// How all units stand, in the order of their numbers.
nlohmann::json Overview(const SessionContext& context);

/// Serves one request on a connected socket and closes it. Headers up to 8 KiB, bodies up to 4 KiB,
/// ten seconds for the whole of a request; a stream of events lasts until its reader leaves or
/// falls behind.
void ServeSession(boost::asio::ip::tcp::socket socket, SessionContext& context);

}  // namespace simulator::page
