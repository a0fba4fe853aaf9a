#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace service_access {

/// Parses JSON that a peer sent (RFC 8259). The caller bounds the length; this function bounds the
/// depth, to 16 levels. Throws std::exception with the reason on anything else than one valid
/// value.
nlohmann::json ParseBoundedJson(std::string_view text);

/// The text of a JSON value, on one line. What is no UTF-8 in its strings is replaced.
std::string FormatJson(const nlohmann::json& value);

}  // namespace service_access
