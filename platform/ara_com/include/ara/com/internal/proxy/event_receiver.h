#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <ac/com/cpp_binding/event_cache_update_policy.h>
#include <ara/com/service_handle.h>

namespace ara::com::internal::proxy {

/// Client side of one event or field, independent of its type: the subscription, the store of
/// samples that have arrived, and the cache of those that the user has taken.
///
/// Any thread may call any operation, also from inside the receive handler. No operation fails: a
/// service that is unavailable, or an event that it lacks, delivers no samples, and the middleware
/// logs it. A payload that the decoder rejects is logged as an incident and dropped.
class EventReceiver {
public:
    using Sample = std::shared_ptr<const void>;
    /// Makes a sample, not null, from a payload; throws a std::exception that names the violated
    /// rule. Runs on a thread of the middleware, one call after the other.
    using Decoder = std::function<Sample(const std::vector<std::uint8_t>& payload)>;

    /// Keeps the service's client alive. `event` is the event's name in the deployment.
    EventReceiver(const ServiceHandle& handle, std::string event, Decoder decoder);
    /// Does what Unsubscribe does.
    ~EventReceiver();

    EventReceiver(const EventReceiver&) = delete;
    EventReceiver& operator=(const EventReceiver&) = delete;

    /// Sets what is called after each sample, on a thread of the middleware, one call after the
    /// other; empty for none. What the handler refers to must live until Unsubscribe has returned.
    /// An exception out of the handler is logged.
    void SetReceiveHandler(std::function<void()> handler);

    /// Subscribes and returns at once; a field's current value arrives first. The store keeps the
    /// newest `cacheSize` samples, at least one, until the next Update; `policy` says what Update
    /// does with the cache. No effect while subscribed.
    void Subscribe(ac::com::cpp_binding::Event_cache_update_policy policy, std::size_t cacheSize);

    /// Ends the subscription and discards what Update has not taken; the cache stays. Afterwards
    /// the receive handler neither runs nor will run; called from inside the handler it does not
    /// wait for that run.
    void Unsubscribe();

    /// Takes the samples that have arrived since the last call into the cache; true if there are
    /// any.
    bool Update();

    /// The cache, oldest sample first. The samples are shared and immutable.
    std::vector<Sample> GetCachedSamples() const;

    /// Empties the cache under policy kNewestN; under kLastN the samples stay.
    void Cleanup();

private:
    class Impl;
    std::shared_ptr<Impl> mImpl;
};

}  // namespace ara::com::internal::proxy
