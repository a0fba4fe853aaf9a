#pragma once

#include <memory>

namespace vintrel {

/// Reports whether the system clock has been set since power-up. Dispatcher thread only.
class SystemTimeIf {
public:
    virtual ~SystemTimeIf() = default;

    static std::shared_ptr<SystemTimeIf> Create();

    /// To be called once before anything else.
    virtual void Initialize() = 0;

    /// The state of this moment; a clock that was set may be found unset again.
    virtual bool IsSystemTimeSet() const = 0;
};

}  // namespace vintrel
