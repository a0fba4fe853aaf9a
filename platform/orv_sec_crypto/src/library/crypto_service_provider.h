#pragma once

#include <memory>

#include <orv/sec/crypto/i_crypto_service_provider.h>

#include "errors/crypto_error.h"
#include "store/store_database.h"

namespace orv::sec::crypto {

class CryptoServiceProvider final : public ICryptoServiceProvider {
public:
    explicit CryptoServiceProvider(std::shared_ptr<StoreDatabase> database);

    CryptoResult<std::shared_ptr<operation::IDigitalSignature>> createDigitalSignature(
        const operation::DigitalSignatureParams& params) override;
    CryptoResult<std::shared_ptr<operation::ITrustStoreManager>> createTrustStoreManager() override;
    CryptoResult<std::shared_ptr<operation::ICertificateHandler>> createCertificateHandler()
        override;

private:
    std::shared_ptr<StoreDatabase> mDatabase;
};

}  // namespace orv::sec::crypto
