#pragma once

#include <cstdint>

namespace ac::com::cpp_binding {

/// What an event's Update does with the samples that the cache held before.
enum class Event_cache_update_policy : std::uint8_t {
    /// New samples join them, the oldest leave when the cache is full.
    kLastN = 0,
    /// New samples, as many of the newest as the cache holds, replace them.
    kNewestN = 1,
};

}  // namespace ac::com::cpp_binding
