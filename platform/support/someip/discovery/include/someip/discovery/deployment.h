#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace someip {

/// Times of service discovery (PRS_SOMEIPSD, startup behaviour and response behaviour).
struct SdTiming {
    /// Before the first Find or Offer, at random between the two.
    std::chrono::milliseconds initialDelayMin{10};
    std::chrono::milliseconds initialDelayMax{100};
    /// Pause before the first repetition of a Find or an Offer; it doubles with each further one.
    std::chrono::milliseconds repetitionsBaseDelay{200};
    unsigned repetitionsMax{3};
    /// Between two Offers from then on.
    std::chrono::milliseconds cyclicOfferDelay{1000};
    /// Before the answer to a multicast, at random between the two.
    std::chrono::milliseconds requestResponseDelayMin{10};
    std::chrono::milliseconds requestResponseDelayMax{50};
    /// Before a Subscribe that was refused, or got no answer, is tried again.
    std::chrono::milliseconds subscribeRetry{2000};
    /// Time to live of this end's own Offers and Subscribes.
    std::chrono::seconds ttl{3};

    bool operator==(const SdTiming& other) const;
};

/// Where this end of the communication is on the network.
struct NetworkDeployment {
    /// This end's own IPv4 address, in numbers.
    std::string address;
    /// Network interface with the address; empty: found by the address.
    std::string interfaceName;
    std::string multicastGroup{"239.192.255.251"};
    /// UDP port of service discovery.
    std::uint16_t sdPort{30490};
    /// Hops that a multicast may make.
    std::uint8_t multicastHops{1};
    SdTiming timing;

    bool operator==(const NetworkDeployment& other) const;
};

struct EventDeployment {
    std::uint16_t id{0};
    std::uint16_t eventgroup{0};

    bool operator==(const EventDeployment& other) const {
        return id == other.id && eventgroup == other.eventgroup;
    }
};

/// Ids of one service instance.
struct ServiceDeployment {
    std::string name;
    std::uint16_t serviceId{0};
    std::uint16_t instanceId{1};
    /// Interface version of the messages, and major version in service discovery.
    std::uint8_t interfaceVersion{1};
    /// Offered; a client accepts any.
    std::uint32_t minorVersion{0};
    /// UDP port of the provider, 0 for a free one. Clients get it from the Offer.
    std::uint16_t port{0};
    /// By the event's or field's name.
    std::map<std::string, EventDeployment> events;

    bool operator==(const ServiceDeployment& other) const;
};

/// Content of the deployment file (docs/someip.md shows it).
struct Deployment {
    NetworkDeployment network;
    std::vector<ServiceDeployment> services;

    bool operator==(const Deployment& other) const {
        return network == other.network && services == other.services;
    }
};

/// Instance text for the first instance in the file.
constexpr const char* kAnyInstance = "Any";

/// The service with this name, and with this instance id in decimal digits or kAnyInstance. Null if
/// there is none; owned by `deployment`.
const ServiceDeployment* FindService(const Deployment& deployment, const std::string& name,
                                     const std::string& instance);

/// Value of SOMEIP_DEPLOYMENT, or /var/run/qel/config/someip/Deployment.json.
std::string DefaultDeploymentPath();

/// Throws std::runtime_error, with a message for the user, if the text is no valid deployment.
Deployment ParseDeployment(const std::string& json);
/// The same for a file of at most 1 MiB. Throws, too, if it is missing, unreadable or larger.
Deployment ReadDeployment(const std::string& path);

/// Text that ParseDeployment reads back to the same deployment.
std::string FormatDeployment(const Deployment& deployment);

/// The two ends of a communication that stays on this machine.
enum class LoopbackEnd : std::uint8_t { kProvider, kClient };

/// Network of one end on the loopback interface: its address and multicast group are made of the
/// process id, which keeps the pairs of different processes apart. Nothing is delayed at random,
/// since two ends have no load to spread.
NetworkDeployment LoopbackNetwork(LoopbackEnd end);

}  // namespace someip
