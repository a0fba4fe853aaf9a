#include "library/trust_store_manager.h"

#include <utility>

#include "library/crypto_store.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

void CheckNotReserved(const std::string& name) {
    // If it were taken, the unit could no longer be provisioned.
    if (name == kKoruStoreName) {
        throw CryptoError(CryptoResultCode::kInvalidArgument,
                          "the name belongs to the key-management store");
    }
}

}  // namespace

TrustStoreManager::TrustStoreManager(std::shared_ptr<StoreDatabase> database)
    : mDatabase(std::move(database)) {}

CryptoResult<std::shared_ptr<store::ITrustStore>> TrustStoreManager::createTrustStore(
    const std::string& name) {
    return RunForResult<std::shared_ptr<store::ITrustStore>>("createTrustStore", [&] {
        CheckNotReserved(name);
        mDatabase->CreateStore(name, StoreKind::kTrustStore);
        return std::make_shared<TrustStore>(mDatabase, name);
    });
}

CryptoResult<std::shared_ptr<store::ITrustStore>> TrustStoreManager::lookupTrustStore(
    const std::string& name) {
    return RunForResult<std::shared_ptr<store::ITrustStore>>("lookupTrustStore", [&] {
        if (!mDatabase->HasStore(name, StoreKind::kTrustStore)) {
            throw CryptoError(CryptoResultCode::kNotFound, "no trust store '" + name + "'");
        }
        return std::make_shared<TrustStore>(mDatabase, name);
    });
}

CryptoResult<std::shared_ptr<store::IKORUStore>> TrustStoreManager::lookupForKORUStore() {
    return RunForResult<std::shared_ptr<store::IKORUStore>>("lookupForKORUStore", [&] {
        if (!mDatabase->HasStore(kKoruStoreName, StoreKind::kKoruStore)) {
            throw CryptoError(CryptoResultCode::kNotFound, "the unit was never provisioned");
        }
        return std::make_shared<KoruStore>(mDatabase, kKoruStoreName);
    });
}

}  // namespace orv::sec::crypto
