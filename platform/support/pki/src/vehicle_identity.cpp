#include <string_view>

#include <pki_support/pki_error.h>
#include <pki_support/vehicle_identity.h>

namespace pki_support {

namespace {

constexpr std::size_t kVinLength = 17;
constexpr std::size_t kMaxSuffixLength = 32;
constexpr std::string_view kVinCharacters = "0123456789ABCDEFGHJKLMNPRSTUVWXYZ";
constexpr std::string_view kSuffixCharacters =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

}  // namespace

bool IsVin(const std::string& text) {
    return text.size() == kVinLength && text.find_first_not_of(kVinCharacters) == std::string::npos;
}

bool IsSuffix(const std::string& text) {
    return !text.empty() && text.size() <= kMaxSuffixLength &&
           text.find_first_not_of(kSuffixCharacters) == std::string::npos;
}

VehicleIdentity ParseCommonName(const std::string& commonName) {
    const auto colon = commonName.find(':');
    VehicleIdentity identity{commonName.substr(0, colon), {}};
    if (colon != std::string::npos) {
        identity.suffix = commonName.substr(colon + 1);
    }
    if (!IsVin(identity.vin) || !IsSuffix(identity.suffix)) {
        throw PkiError("the common name '" + commonName + "' is not a VIN, ':' and a suffix");
    }
    return identity;
}

}  // namespace pki_support
