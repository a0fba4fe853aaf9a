#pragma once

#include "client/clamp_control_cb_if.h"
#include "client/immobilizer_cb_if.h"

namespace vintrel {

/// What the client machine hears of the vehicle.
class VintrelClientCbIf : public ImmobilizerCbIf, public ClampControlCbIf {};

}  // namespace vintrel
