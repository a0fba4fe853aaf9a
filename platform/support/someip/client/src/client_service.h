#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <someip/discovery/required_service.h>
#include <someip/log/drop_log.h>
#include <someip/log/lasting_problem.h>
#include <someip/network/datagram_socket.h>

#include "registered_handler.h"

namespace someip {

/// One service that a node's clients use, with its watchers and subscribers. All but
/// DroppedMessages on the node's strand.
class ClientService : public std::enable_shared_from_this<ClientService>,
                      private RequiredService::Environment {
public:
    /// What a service needs of its node. Called from inside a service's operations.
    class Node {
    public:
        virtual ~Node() = default;
        virtual void Multicast(const std::vector<SdEntry>& entries) = 0;
        virtual void Send(const Endpoint& peer, const std::vector<SdEntry>& entries) = 0;
        virtual std::chrono::milliseconds RandomBetween(std::chrono::milliseconds min,
                                                        std::chrono::milliseconds max) = 0;
        /// A socket on the node's address that receives from `peer` only. Throws std::system_error.
        virtual std::shared_ptr<DatagramSocket> OpenEventSocket(
            const Endpoint& peer, DatagramSocket::Receiver receiver,
            DatagramSocket::FailureHandler failed) = 0;
        virtual void AvailabilityChanged() = 0;
    };

    /// `node` must outlive all calls but the destructor.
    ClientService(Node& node, std::string name, std::string instance);

    const std::string& Name() const { return mName; }
    const std::string& Instance() const { return mInstance; }
    bool IsAvailable() const { return mAvailable; }
    std::uint64_t DroppedMessages() const { return mDrops.Count(); }

    /// Begins to search for the service; no effect if `service` and `timing` are unchanged.
    void Deploy(const ServiceDeployment& service, const SdTiming& timing, TimePoint now);
    /// Ends the search and all subscriptions. `problem`, if not empty, is the reason for the log.
    void Undeploy(const std::string& problem);

    void Add(const std::shared_ptr<AvailabilityWatcher>& watcher);
    void Add(const std::shared_ptr<EventSubscriber>& subscriber, TimePoint now);
    void Drop(const std::shared_ptr<RegisteredHandler>& registered);

    void Handle(const ReceivedSdMessage& message, TimePoint now);
    void Tick(TimePoint now);
    std::optional<TimePoint> NextDeadline(TimePoint now) const;

private:
    void Multicast(const std::vector<SdEntry>& entries) override;
    void Send(const Endpoint& peer, const std::vector<SdEntry>& entries) override;
    std::chrono::milliseconds RandomBetween(std::chrono::milliseconds min,
                                            std::chrono::milliseconds max) override;
    void EntryRejected(const std::string& reason) override;
    std::optional<Endpoint> EventEndpoint(const Endpoint& provider) override;
    void AvailabilityChanged(bool available) override;
    void OfferLapsed() override;
    void SubscriptionRefused(std::uint16_t eventgroup) override;

    void CloseEventSocket();
    void NotifyWatchers();
    std::optional<std::uint16_t> EventgroupOf(const std::string& event) const;
    std::set<std::uint16_t> WantedEventgroups() const;
    void Receive(const std::uint8_t* data, std::size_t size);
    bool Take(const Message& message);
    void HandleEvent(const std::string& event, const Bytes& payload);

    Node& mNode;
    const std::string mName;
    const std::string mInstance;
    DropLog mDrops;
    std::optional<ServiceDeployment> mDeployment;
    SdTiming mTiming;
    std::optional<RequiredService> mRequired;
    bool mAvailable{false};
    std::shared_ptr<DatagramSocket> mEventSocket;
    Endpoint mEventPeer;
    std::vector<std::shared_ptr<AvailabilityWatcher>> mWatchers;
    std::vector<std::shared_ptr<EventSubscriber>> mSubscribers;
    /// Why the service is unavailable.
    LastingProblem mProblem;
};

}  // namespace someip
