#pragma once

#include <memory>
#include <vector>

#include <ara/com/internal/proxy/event_receiver.h>

namespace ara::com::internal::proxy {

/// Client side of a field's Notify event. `Description` is generated: the field's name as `kName`,
/// its `value_type`, and `Deserialize`, which makes a value from a payload or throws.
///
/// Any thread may call any operation, also from inside the receive handler.
template <typename Description>
class Field {
public:
    using SampleType = typename Description::value_type;
    using SamplePtr = std::shared_ptr<const SampleType>;

    explicit Field(const ServiceHandle& handle)
        : mReceiver(handle, Description::kName, [](const std::vector<std::uint8_t>& payload) {
              return std::make_shared<const SampleType>(Description::Deserialize(payload));
          }) {}

    /// Sets what is called, on a thread of the middleware and one call after the other, when a
    /// sample has arrived. The handler may be empty.
    void SetReceiveHandler(std::function<void()> handler) {
        mReceiver.SetReceiveHandler(std::move(handler));
    }

    /// Subscribes; the field's current value comes at once, then each further one. As many samples
    /// as the cache holds are kept until the next Update. A second Subscribe changes nothing.
    void Subscribe(ac::com::cpp_binding::Event_cache_update_policy policy, std::size_t cacheSize) {
        mReceiver.Subscribe(policy, cacheSize);
    }

    /// Ends the subscription: afterwards the receive handler neither runs nor will run; called from
    /// inside the handler it doesn't wait for that run.
    void Unsubscribe() { mReceiver.Unsubscribe(); }

    /// Takes the samples that came since the last call into the cache; true if there are any.
    bool Update() { return mReceiver.Update(); }

    /// The cache, oldest sample first.
    std::vector<SamplePtr> GetCachedSamples() const {
        std::vector<SamplePtr> samples;
        for (const EventReceiver::Sample& sample : mReceiver.GetCachedSamples()) {
            samples.push_back(std::static_pointer_cast<const SampleType>(sample));
        }
        return samples;
    }

    /// Empties the cache under policy kNewestN; under kLastN the samples stay.
    void Cleanup() { mReceiver.Cleanup(); }

private:
    EventReceiver mReceiver;
};

}  // namespace ara::com::internal::proxy
