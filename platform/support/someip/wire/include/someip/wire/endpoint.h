#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

namespace someip {

/// IPv4 address and UDP port, both in the host's byte order.
struct Endpoint {
    std::uint32_t address{0};
    std::uint16_t port{0};

    bool operator==(const Endpoint& other) const {
        return address == other.address && port == other.port;
    }
    bool operator!=(const Endpoint& other) const { return !(*this == other); }
    bool operator<(const Endpoint& other) const {
        return std::tie(address, port) < std::tie(other.address, other.port);
    }
};

/// Address of a text like "192.0.2.1"; nothing for any other text.
std::optional<std::uint32_t> ParseIpv4(const std::string& text);

std::string AddressText(std::uint32_t address);
/// "192.0.2.1:30490".
std::string ToText(const Endpoint& endpoint);

/// 224.0.0.0 to 239.255.255.255 (RFC 5771).
bool IsMulticast(std::uint32_t address);
/// Neither 0.0.0.0, nor multicast, nor reserved or broadcast (240.0.0.0 and above).
bool IsUnicast(std::uint32_t address);

}  // namespace someip
