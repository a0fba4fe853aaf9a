#include "orv_sec_crypto/signing_key_access.h"

#include "errors/crypto_error.h"
#include "errors/crypto_log.h"
#include "library/crypto_store.h"

namespace orv::sec::crypto::host {

PrivateKey LoadPrivateKey(const store::ICryptoStore& store, const common::IKeyID& keyId) {
    try {
        const StoredId& id = ResolveKeyId(&keyId);
        const auto* location = dynamic_cast<const StoreLocation*>(&store);
        if (location == nullptr || !location->Holds(id)) {
            throw CryptoError(common::CryptoResultCode::kInvalidArgument,
                              "the handle is one of another store");
        }
        return PrivateKey(id.Database()->LoadPrivateKey(id.Entry()).release());
    } catch (const CryptoError& error) {
        Log().Error(std::string("LoadPrivateKey: ") + error.what());
        return nullptr;
    }
}

}  // namespace orv::sec::crypto::host
