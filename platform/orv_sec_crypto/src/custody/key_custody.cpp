#include "custody/key_custody.h"

#include "custody/token_custody.h"
#include "custody/wrapping_key_custody.h"

namespace orv::sec::crypto {

std::unique_ptr<KeyCustody> MakeKeyCustody(const std::string& directory,
                                           const host::KeyStorage& storage) {
    const std::string keyPath = directory + "/wrapping.key";
    if (const auto* tpm = std::get_if<host::TpmKeyStorage>(&storage)) {
        return std::make_unique<WrappingKeyCustody>(WrappingKeyPlace{keyPath + ".tpm", tpm->tcti});
    }
    if (const auto* token = std::get_if<host::TokenKeyStorage>(&storage)) {
        return std::make_unique<TokenCustody>(directory, *token);
    }
    return std::make_unique<WrappingKeyCustody>(WrappingKeyPlace{keyPath, ""});
}

}  // namespace orv::sec::crypto
