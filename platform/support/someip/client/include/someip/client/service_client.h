#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <someip/network/worker_pool.h>

namespace someip {

class ServiceClient;

/// What the clients of one deployment file share: its network and one end of service discovery.
/// Reads the file again when it changes. Any thread.
class ClientNode {
public:
    /// Begins to read the file, on a thread of `pool`, which is not null. A missing or invalid file
    /// is logged and read when it changes.
    ClientNode(std::shared_ptr<WorkerPool> pool, std::string deploymentPath);

    /// Closes the network. The clients must have been destroyed.
    ~ClientNode();

    ClientNode(const ClientNode&) = delete;
    ClientNode& operator=(const ClientNode&) = delete;

private:
    friend class ServiceClient;
    class Impl;

    std::shared_ptr<WorkerPool> mPool;
    std::shared_ptr<Impl> mImpl;
};

/// Client of one service instance over UDP: finds it by service discovery, reports its availability
/// and delivers its events.
///
/// Any thread may call any operation, also from inside a handler. Handlers run on the pool's
/// threads; the calls for one registration do not overlap.
class ServiceClient {
public:
    /// A handler's registration. Its destruction closes it.
    class Registration {
    public:
        virtual ~Registration() = default;

        /// After this has returned, the handler neither runs nor will run; called from the handler
        /// itself it does not wait for that run. Further calls wait in the same way and have no
        /// other effect.
        virtual void Close() = 0;
    };

    using AvailabilityHandler = std::function<void(bool available)>;
    using PayloadHandler = std::function<void(const std::vector<std::uint8_t>& payload)>;

    /// `instance` is an instance id in decimal digits or kAnyInstance.
    ServiceClient(std::shared_ptr<ClientNode> node, std::string name, const std::string& instance);

    /// Ends the subscriptions at the service. All registrations must have been closed.
    ~ServiceClient();

    ServiceClient(const ServiceClient&) = delete;
    ServiceClient& operator=(const ServiceClient&) = delete;

    /// The handler is called at each change, first when the service is found.
    std::shared_ptr<Registration> WatchAvailability(AvailabilityHandler handler);

    /// The handler is called with each value of the event; for a field with the current value
    /// first, which earlier subscribers to the same eventgroup receive once more. An event that the
    /// deployment lacks is logged.
    std::shared_ptr<Registration> SubscribeEvent(const std::string& event, PayloadHandler handler);

    const std::string& Name() const { return mName; }

    /// Messages from the service's endpoint that were dropped so far.
    std::uint64_t DroppedMessages() const;

private:
    class Service;
    class RegistrationImpl;
    friend class ClientNode::Impl;

    std::string mName;
    std::shared_ptr<ClientNode> mNode;
    std::shared_ptr<Service> mService;
};

}  // namespace someip
