#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <someip/server/field_server.h>

#include "diagnosticinfo_host/identification_data.h"

namespace diagnosticinfo_host {

/// The ids under which the host platform deploys the service, on the loopback network of providers.
someip::Deployment DefaultDeployment();

/// Server side of orv::services::diagnosticinfo::DiagnosticInfo. Any thread.
class DiagnosticInfoServer {
public:
    /// Binds the endpoint and offers nothing yet. Throws std::runtime_error if the address is
    /// unavailable, and std::out_of_range if the deployment has no service or its first one lacks
    /// the event identificationData.
    explicit DiagnosticInfoServer(const someip::Deployment& deployment = DefaultDeployment());

    /// What clients must have in their deployment file, apart from the address, which is their own.
    /// Owned by the server.
    const someip::Deployment& Deployment() const { return mServer.OwnDeployment(); }

    /// Offers the service from now on.
    void Offer() { mServer.Offer(); }
    /// Withdraws the offer and ends all subscriptions; the field keeps its value.
    void StopOffer() { mServer.StopOffer(); }

    /// Sets the field's value and publishes it. Throws std::length_error if it does not fit into a
    /// datagram.
    void Publish(const IdentificationData& records);
    /// Publishes a payload unchanged, valid or not. Throws as Publish does.
    void PublishRaw(std::vector<std::uint8_t> payload);

    /// Clients that are subscribed at the moment.
    std::size_t SubscriberCount() const { return mServer.SubscriberCount(mEventId); }

private:
    someip::FieldServer mServer;
    std::uint16_t mEventId;
};

}  // namespace diagnosticinfo_host
