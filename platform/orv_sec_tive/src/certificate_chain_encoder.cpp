#include "certificate_chain_encoder.h"

#include <utility>

#include "cms_container.h"
#include "orv_sec_crypto/signing_key_access.h"
#include "tive_error.h"

namespace orv::sec::tive {

CertificateChainEncoder::CertificateChainEncoder(
    std::shared_ptr<const crypto::store::ICryptoStore> cryptoStore,
    std::shared_ptr<const crypto::common::IKeyID> keyId, std::vector<X509Ptr> chain)
    : mCryptoStore(std::move(cryptoStore)), mKeyId(std::move(keyId)), mChain(std::move(chain)) {}

crypto::common::ErrorOrObjectResult<TIVEResultCode, std::string> CertificateChainEncoder::encode(
    const std::vector<std::uint8_t>& payload, const AuxiliaryData& auxiliaryData) {
    using Result = crypto::common::ErrorOrObjectResult<TIVEResultCode, std::string>;
    const crypto::host::PrivateKey key = crypto::host::LoadPrivateKey(*mCryptoStore, *mKeyId);
    if (key == nullptr) {
        return Result::Error(TIVEResultCode::kKeyNotFound, "the signing key cannot be loaded");
    }
    try {
        return Result::Success(MakeCmsContainer(payload, auxiliaryData, *key, mChain));
    } catch (const TiveError& error) {
        return Result::Error(error.Code(), error.what());
    }
}

}  // namespace orv::sec::tive
