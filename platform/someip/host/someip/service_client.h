#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "someip/deployment.h"
#include "someip/worker_pool.h"

namespace someip {

/// Client of one service instance over UDP: asks for it cyclically, says when it comes and goes,
/// and delivers its events.
///
/// Any thread may call any operation, also from inside a handler. Handlers run on the pool's
/// threads; the calls for one registration come one after the other.
class ServiceClient {
public:
    /// A handler's registration; its end is the handler's end.
    class Registration {
    public:
        virtual ~Registration() = default;

        /// After this has returned, the handler neither runs nor will run; called from the handler
        /// itself it does not wait for that run. Every further call does nothing but wait, too.
        virtual void Close() = 0;
    };

    using AvailabilityHandler = std::function<void(bool available)>;
    using PayloadHandler = std::function<void(const std::vector<std::uint8_t>& payload)>;

    /// The locator is asked on the pool's threads, at each cycle in which the service is away.
    ServiceClient(std::shared_ptr<WorkerPool> pool, std::unique_ptr<ServiceLocator> locator,
                  std::string name, std::string instance);

    /// Ends the registration at the service. All registrations must have been closed.
    ~ServiceClient();

    ServiceClient(const ServiceClient&) = delete;
    ServiceClient& operator=(const ServiceClient&) = delete;

    /// The handler is called at each change, first when the service is found.
    std::shared_ptr<Registration> WatchAvailability(AvailabilityHandler handler);

    /// The handler is called with each value of the event; for a field with the current value
    /// first.
    std::shared_ptr<Registration> SubscribeEvent(const std::string& event, PayloadHandler handler);

    const std::string& Name() const { return mName; }

private:
    class Impl;
    class RegistrationImpl;

    std::string mName;
    std::shared_ptr<WorkerPool> mPool;
    std::shared_ptr<Impl> mImpl;
};

}  // namespace someip
