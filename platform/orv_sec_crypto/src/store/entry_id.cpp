#include "store/entry_id.h"

#include <algorithm>

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

constexpr std::size_t kMaxIdBytes = 128;

void AppendWithLength(std::string& target, const std::string& field) {
    for (unsigned shift = 32; shift > 0; shift -= 8) {
        target.push_back(static_cast<char>((field.size() >> (shift - 8)) & 0xff));
    }
    target += field;
}

}  // namespace

void CheckId(const std::string& id) {
    if (id.empty()) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the id is empty");
    }
    if (id.size() > kMaxIdBytes) {
        throw CryptoError(CryptoResultCode::kTooLarge, "the id is too long");
    }
    const bool printable = std::all_of(id.begin(), id.end(),
                                       [](char letter) { return letter >= ' ' && letter <= '~'; });
    if (!printable) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the id is not printable ASCII");
    }
}

std::string Describe(const EntryId& entry) {
    return "'" + entry.id + "' in " + entry.store;
}

CryptoError NotFound(const char* what, const EntryId& entry) {
    return CryptoError(CryptoResultCode::kNotFound,
                       std::string("no ") + what + " " + Describe(entry));
}

// The lengths keep ("A", "BC") and ("AB", "C") apart.
std::string RowName(const EntryId& entry) {
    std::string data = "orv.sec.crypto key pair 1";
    AppendWithLength(data, entry.store);
    AppendWithLength(data, entry.id);
    return data;
}

}  // namespace orv::sec::crypto
