#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <someip/discovery/deployment.h>

namespace someip {

/// Server side of one service instance: offers it by service discovery and publishes its fields. A
/// client that subscribes gets the current values at once and each later one.
///
/// At most ProvidedService::kMaxSubscriptions subscriptions are held at a time. Requests are
/// answered with an error, for the service has no methods. Any thread may call any operation.
class FieldServer {
public:
    /// Serves the first service of `deployment`, which there must be, on its network. Offers
    /// nothing yet. Throws std::runtime_error if the network's address is unavailable.
    explicit FieldServer(Deployment deployment);

    /// Withdraws the service as StopOffer does and closes the endpoint.
    ~FieldServer();

    FieldServer(const FieldServer&) = delete;
    FieldServer& operator=(const FieldServer&) = delete;

    /// The deployment that it was made with, owned by the server. A client's differs in the address
    /// only.
    const Deployment& OwnDeployment() const;

    /// Offers the service from now on; no effect if it is offered already.
    void Offer();
    /// Notifies the clients at once and ends their subscriptions; the fields keep their values.
    void StopOffer();

    /// Sets a field's value and publishes it to its subscribers. Throws std::length_error if the
    /// payload does not fit into a datagram, std::out_of_range if no event has the id.
    void SetField(std::uint16_t eventId, std::vector<std::uint8_t> payload);

    /// Clients that are subscribed to the event at the moment.
    std::size_t SubscriberCount(std::uint16_t eventId) const;

    /// Messages that were dropped so far.
    std::uint64_t DroppedMessages() const;

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace someip
