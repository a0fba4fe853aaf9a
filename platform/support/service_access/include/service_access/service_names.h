#pragma once

namespace service_access {

/// The services and elements that this platform knows, by their names on the wire.
inline constexpr char kClampControlService[] = "ClampControl";
inline constexpr char kClamp15Element[] = "Clamp15";
inline constexpr char kImmobilizerService[] = "Immobilizer";

}  // namespace service_access
