#include <array>

#include <arpa/inet.h>

#include <someip/wire/endpoint.h>

namespace someip {

namespace {

constexpr std::uint32_t kFirstMulticast = 0xE0000000U;
constexpr std::uint32_t kFirstReserved = 0xF0000000U;

}  // namespace

std::optional<std::uint32_t> ParseIpv4(const std::string& text) {
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::string AddressText(std::uint32_t address) {
    in_addr raw{};
    raw.s_addr = htonl(address);
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &raw, text.data(), text.size());
    return text.data();
}

std::string ToText(const Endpoint& endpoint) {
    return AddressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

bool IsMulticast(std::uint32_t address) {
    return address >= kFirstMulticast && address < kFirstReserved;
}

bool IsUnicast(std::uint32_t address) {
    return address != 0 && address < kFirstMulticast;
}

}  // namespace someip
