#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/i_key_id.h>
#include <orv/sec/crypto/store/i_crypto_store.h>
#include <orv/sec/tive/processors/i_auxiliary_data_stapled_encoder.h>

namespace orv::sec::tive {

using openssl_support::X509Ptr;

/// Signs with one key of the crypto store. The chain is the one found at construction; the private
/// key is fetched for each container and held no longer.
class CertificateChainEncoder : public processors::IAuxiliaryDataStapledEncoder {
public:
    CertificateChainEncoder(std::shared_ptr<const crypto::store::ICryptoStore> cryptoStore,
                            std::shared_ptr<const crypto::common::IKeyID> keyId,
                            std::vector<X509Ptr> chain);

    crypto::common::ErrorOrObjectResult<TIVEResultCode, std::string> encode(
        const std::vector<std::uint8_t>& payload, const AuxiliaryData& auxiliaryData) override;

private:
    const std::shared_ptr<const crypto::store::ICryptoStore> mCryptoStore;
    const std::shared_ptr<const crypto::common::IKeyID> mKeyId;
    const std::vector<X509Ptr> mChain;
};

}  // namespace orv::sec::tive
