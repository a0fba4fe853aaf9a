#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "someip/deployment.h"

namespace someip {

/// Server side of one service instance: offers it on a UDP endpoint and publishes its fields. A
/// client that registers for a field gets the current value at once and each later one.
///
/// At most 64 clients are served at a time; a client is forgotten when its time to live (at most a
/// minute) runs out. Any thread may call any operation.
class FieldServer {
public:
    /// Binds the endpoint of `service`; port 0 stands for a free one. Offers nothing yet. Throws
    /// std::system_error if the address is not to be had.
    explicit FieldServer(const ServiceDeployment& service);

    /// Withdraws the service, tells the clients so, and closes the endpoint.
    ~FieldServer();

    FieldServer(const FieldServer&) = delete;
    FieldServer& operator=(const FieldServer&) = delete;

    /// The service as clients must have it in their deployment, with the port in use.
    const ServiceDeployment& Deployment() const;

    void Offer();
    /// Tells the clients at once; they are served again after the next Offer.
    void StopOffer();

    /// Sets a field's value and publishes it to its subscribers. Throws std::length_error if the
    /// payload does not fit into a datagram.
    void SetField(std::uint16_t eventId, std::vector<std::uint8_t> payload);

    /// Clients that are registered for the event at the moment.
    std::size_t SubscriberCount(std::uint16_t eventId) const;

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace someip
