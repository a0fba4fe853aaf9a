#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace service_access {

/// A service came or went.
struct ServiceState {
    std::string name;
    bool available;
};

/// An element of a service has a value, at first or again.
struct ElementChange {
    std::string service;
    std::string element;
    bool value;
};

/// The subscription that was asked for by `request` lives and is called `subscription`.
struct SubscriptionAccepted {
    std::uint64_t request;
    std::string subscription;
};

/// The subscription that was asked for by `request` was refused.
struct SubscriptionRefused {
    std::uint64_t request;
};

/// A message of a type that this version does not know; to be ignored.
struct UnknownMessage {};

using EventMessage = std::variant<ServiceState, ElementChange, SubscriptionAccepted,
                                  SubscriptionRefused, UnknownMessage>;

/// Parses what the server sends on the event channel. Names and ids are 1 to 128 bytes long.
/// Throws std::exception with the reason on anything that is not such a message.
EventMessage ParseEventMessage(std::string_view text);

}  // namespace service_access
