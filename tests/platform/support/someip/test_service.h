#pragma once

#include <chrono>

#include <someip/discovery/deployment.h>

/// A service with one field, between two ends on the loopback.
namespace test_service {

constexpr std::uint16_t kFieldId = 0x8001;

/// With times to live that no test sees the end of.
inline someip::Deployment ProviderDeployment() {
    someip::ServiceDeployment service;
    service.name = "test::Service";
    service.serviceId = 0x1234;
    service.events["field"] = {kFieldId, 1};
    someip::NetworkDeployment network = someip::LoopbackNetwork(someip::LoopbackEnd::kProvider);
    network.timing.ttl = std::chrono::hours(1);
    return {network, {service}};
}

/// What the client's end has to know of a provider.
inline someip::Deployment ClientDeployment(someip::Deployment provider = ProviderDeployment()) {
    provider.network.address = someip::LoopbackNetwork(someip::LoopbackEnd::kClient).address;
    return provider;
}

}  // namespace test_service
