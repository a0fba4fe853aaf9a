#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Bytes from hexadecimal digits; blanks are passed over.
inline std::vector<std::uint8_t> Hex(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        if (c != ' ') {
            digits.push_back(c);
        }
    }
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}
