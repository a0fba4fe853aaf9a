#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>

#include <someip/client/service_client.h>

#include "handler_gate.h"

namespace someip {

using Strand = boost::asio::strand<boost::asio::io_context::executor_type>;

/// Calls that may wait for a handler that is slow.
constexpr int kMaxPending = 64;

/// A handler with the strand that puts its calls in a row.
struct RegisteredHandler {
    explicit RegisteredHandler(boost::asio::io_context& context)
        : strand(boost::asio::make_strand(context)) {}

    bool IsLagging() const { return pending.load() >= kMaxPending; }

    HandlerGate gate;
    Strand strand;
    std::atomic<int> pending{0};
};

struct AvailabilityWatcher : RegisteredHandler {
    using RegisteredHandler::RegisteredHandler;
    ServiceClient::AvailabilityHandler handler;
    /// What the handler has been told, or is about to be.
    bool told{false};
};

struct EventSubscriber : RegisteredHandler {
    using RegisteredHandler::RegisteredHandler;
    std::string event;
    ServiceClient::PayloadHandler handler;
};

/// Hands `call` to the handler's strand; the gate decides there whether it still runs.
void Deliver(const std::shared_ptr<RegisteredHandler>& registered, std::function<void()> call);

}  // namespace someip
