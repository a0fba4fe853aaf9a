#pragma once

#include <memory>

#include "fsm/fsm.h"

namespace vintrel {

/// The client machine as the program entry knows it.
class VintrelClientFsmIf : public fsm::Fsm {
public:
    using fsm::Fsm::Fsm;

    /// Makes the client with all its collaborators. The caller moves it into a `std::shared_ptr`
    /// before `StartFsm`. Throws what the collaborators' constructors throw.
    static std::unique_ptr<VintrelClientFsmIf> Create(bool factoryReset);

    /// Registers the machine with the dispatcher and starts the collaborators. False: it could
    /// not start and has stopped itself.
    virtual bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher) = 0;
};

}  // namespace vintrel
