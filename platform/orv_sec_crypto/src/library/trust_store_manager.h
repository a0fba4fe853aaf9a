#pragma once

#include <memory>
#include <string>

#include <orv/sec/crypto/operation/i_trust_store_manager.h>

#include "errors/crypto_error.h"
#include "store/store_database.h"

namespace orv::sec::crypto {

class TrustStoreManager final : public operation::ITrustStoreManager {
public:
    explicit TrustStoreManager(std::shared_ptr<StoreDatabase> database);

    CryptoResult<std::shared_ptr<store::ITrustStore>> createTrustStore(
        const std::string& name) override;
    CryptoResult<std::shared_ptr<store::ITrustStore>> lookupTrustStore(
        const std::string& name) override;
    CryptoResult<std::shared_ptr<store::IKORUStore>> lookupForKORUStore() override;

private:
    std::shared_ptr<StoreDatabase> mDatabase;
};

}  // namespace orv::sec::crypto
