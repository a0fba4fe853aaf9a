#pragma once

#include <cstdint>
#include <initializer_list>
#include <random>

namespace lives {

/// The dice of one life. The standard fixes the engine's numbers and the draws are made here, so a
/// seed means the same everywhere.
class Random {
public:
    explicit Random(std::uint64_t seed) : mEngine(seed) {}

    /// 0 to `bound` - 1; 0 for a bound of 0.
    std::uint32_t Below(std::uint32_t bound) {
        return static_cast<std::uint32_t>(((mEngine() >> 32U) * bound) >> 32U);
    }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }
    bool Percent(std::uint32_t percent) { return Below(100) < percent; }

    template <typename Value>
    Value Pick(std::initializer_list<Value> values) {
        return *(values.begin() + Below(static_cast<std::uint32_t>(values.size())));
    }

private:
    std::mt19937_64 mEngine;
};

}  // namespace lives
