#pragma once

#include <memory>

namespace vintrel {

/// Tells whether the system clock has been set since power-up. Dispatcher thread only.
class SystemTimeIf {
public:
    virtual ~SystemTimeIf() = default;

    static std::shared_ptr<SystemTimeIf> Create();

    virtual void Initialize() = 0;

    virtual bool IsSystemTimeSet() const = 0;
};

}  // namespace vintrel
