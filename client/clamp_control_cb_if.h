#pragma once

namespace vintrel {

/// Receiver of the state of Clamp 15 (ignition).
class ClampControlCbIf {
public:
    virtual ~ClampControlCbIf() = default;

    /// Called on a thread of the clamp library; must not block.
    virtual void ClampStateChangeCb(bool clamp15On) = 0;
};

}  // namespace vintrel
