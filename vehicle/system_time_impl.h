#pragma once

#include <chrono>

#include "client/system_time_if.h"

namespace vintrel {

/// Takes the clock for set as soon as its local year is not that of the epoch.
class SystemTimeImpl : public SystemTimeIf {
public:
    void Initialize() override;

    /// Remembers nothing: a clock that falls back to the epoch's year reads as not set again.
    bool IsSystemTimeSet() const override;

    /// The local calendar year, or 0 if the time has none.
    int GetYear(const std::chrono::system_clock::time_point& timePoint) const;

protected:
    /// The clock that is judged.
    virtual std::chrono::system_clock::time_point Now() const;
};

}  // namespace vintrel
