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

/// Calls that may wait for a slow handler.
constexpr int kMaxPending = 64;

/// What all registrations have: the gate that ends them, and the strand that serialises the calls.
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
    /// The availability of which the handler was last notified, or is about to be.
    bool notified{false};
};

struct EventSubscriber : RegisteredHandler {
    using RegisteredHandler::RegisteredHandler;
    std::string event;
    ServiceClient::PayloadHandler handler;
};

/// Posts `call` to the handler's strand, where it runs unless the gate is closed by then.
void Deliver(const std::shared_ptr<RegisteredHandler>& registered, std::function<void()> call);

}  // namespace someip
