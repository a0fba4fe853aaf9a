#pragma once

#include "client/clamp_control_cb_if.h"
#include "client/immobilizer_cb_if.h"

namespace vintrel {

/// The notifications of the vehicle to the client machine.
class VintrelClientCbIf : public ImmobilizerCbIf, public ClampControlCbIf {};

}  // namespace vintrel
