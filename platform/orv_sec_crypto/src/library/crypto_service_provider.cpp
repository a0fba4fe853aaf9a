#include "library/crypto_service_provider.h"

#include <utility>

#include "library/certificate_handler.h"
#include "library/digital_signature.h"
#include "library/trust_store_manager.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

CryptoServiceProvider::CryptoServiceProvider(std::shared_ptr<StoreDatabase> database)
    : mDatabase(std::move(database)) {}

CryptoResult<std::shared_ptr<operation::IDigitalSignature>>
CryptoServiceProvider::createDigitalSignature(const operation::DigitalSignatureParams& params) {
    return RunForResult<std::shared_ptr<operation::IDigitalSignature>>(
        "createDigitalSignature", [&] {
            mDatabase->CheckOpen();
            if (params.algorithm != operation::SignatureAlgorithm::kEcdsaSha256) {
                throw CryptoError(CryptoResultCode::kUnsupported, "unknown signature algorithm");
            }
            return std::make_shared<DigitalSignature>(ResolveKeyId(params.keyId.get()));
        });
}

CryptoResult<std::shared_ptr<operation::ITrustStoreManager>>
CryptoServiceProvider::createTrustStoreManager() {
    return RunForResult<std::shared_ptr<operation::ITrustStoreManager>>(
        "createTrustStoreManager", [&] {
            mDatabase->CheckOpen();
            return std::make_shared<TrustStoreManager>(mDatabase);
        });
}

CryptoResult<std::shared_ptr<operation::ICertificateHandler>>
CryptoServiceProvider::createCertificateHandler() {
    return RunForResult<std::shared_ptr<operation::ICertificateHandler>>(
        "createCertificateHandler", [&] {
            mDatabase->CheckOpen();
            return std::make_shared<CertificateHandler>(mDatabase);
        });
}

}  // namespace orv::sec::crypto
