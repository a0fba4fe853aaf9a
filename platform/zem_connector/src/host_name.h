#pragma once

#include <string>

namespace zem_connector {

/// Whether a text can be a host's name or IP address: 1 to 255 letters, digits, '-', '_', '.', and
/// ':' and '%' as in IPv6 addresses with their scope (RFC 4007).
///
/// Other characters could inject into the proxy protocols, where the name is sent as it is.
bool IsHostName(const std::string& text);

/// Whether the text is an IPv4 or IPv6 address; such a host has no name to look up.
bool IsIpAddress(const std::string& text);

}  // namespace zem_connector
