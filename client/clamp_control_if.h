#pragma once

#include <memory>

#include "client/clamp_control_cb_if.h"

namespace vintrel {

/// Source of the state of Clamp 15.
class ClampControlIf {
public:
    virtual ~ClampControlIf() = default;

    /// `callback` must outlive the returned object.
    static std::shared_ptr<ClampControlIf> Create(ClampControlCbIf& callback);

    /// Starts the notifications. False if they were started already.
    virtual bool Subscribe() = 0;
};

}  // namespace vintrel
