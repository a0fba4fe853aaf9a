#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <orv/sec/crypto/common/crypto_allocator.h>

namespace vintrel {

// Conversions between plain values and those of the crypto library. Copies into the library's
// vectors are wiped at their release, the plain ones are not.

inline orv::sec::crypto::common::ByteVector ToLibraryBytes(const std::string& text) {
    return {text.begin(), text.end()};
}

inline orv::sec::crypto::common::ByteVector ToLibraryBytes(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

inline std::string ToPlainString(const orv::sec::crypto::common::ByteVector& bytes) {
    return {bytes.begin(), bytes.end()};
}

inline std::vector<std::uint8_t> ToPlainVector(const orv::sec::crypto::common::ByteVector& bytes) {
    return {bytes.begin(), bytes.end()};
}

/// The decimal value of a one-byte result code of any of the libraries.
template <typename Code>
std::string CodeText(Code code) {
    return std::to_string(static_cast<std::uint8_t>(code));
}

}  // namespace vintrel
