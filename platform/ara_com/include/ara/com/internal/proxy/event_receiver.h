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

/// The untyped part of an event: subscription, sample store and cache. Any thread may call any
/// operation, also from inside the receive handler.
class EventReceiver {
public:
    using Sample = std::shared_ptr<const void>;
    /// Makes a sample from a payload; throws what the payload breaks as a std::exception.
    using Decoder = std::function<Sample(const std::vector<std::uint8_t>& payload)>;

    EventReceiver(const ServiceHandle& handle, std::string event, Decoder decoder);
    /// Unsubscribes.
    ~EventReceiver();

    EventReceiver(const EventReceiver&) = delete;
    EventReceiver& operator=(const EventReceiver&) = delete;

    void SetReceiveHandler(std::function<void()> handler);
    void Subscribe(ac::com::cpp_binding::Event_cache_update_policy policy, std::size_t cacheSize);
    void Unsubscribe();
    bool Update();
    std::vector<Sample> GetCachedSamples() const;
    void Cleanup();

private:
    class Impl;
    std::shared_ptr<Impl> mImpl;
};

}  // namespace ara::com::internal::proxy
