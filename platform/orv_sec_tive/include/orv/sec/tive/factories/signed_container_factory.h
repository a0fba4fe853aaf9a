#pragma once

#include <memory>

#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/crypto/common/i_key_id.h>
#include <orv/sec/crypto/i_crypto_service_provider.h>
#include <orv/sec/crypto/store/i_crypto_store.h>
#include <orv/sec/crypto/store/i_trust_store.h>
#include <orv/sec/tive/processors/i_auxiliary_data_stapled_encoder.h>
#include <orv/sec/tive/signature_algorithm_type.h>
#include <orv/sec/tive/tive_result_code.h>

namespace orv::sec::tive::factories {

/// Makes encoders of signed containers. It shares ownership of the three objects that it is given;
/// so do its encoders, which may outlive it. Any thread may call it.
class SignedContainerFactory {
public:
    /// `cryptoStore` holds the signing key and its chain. Where no chain is attached to the key, it
    /// is the certificate stored under the key's id, first in `cryptoStore`, then in `trustStore`.
    /// Null pointers are taken here and refused by the operations.
    SignedContainerFactory(
        const std::shared_ptr<crypto::ICryptoServiceProvider>& cryptoServiceProvider,
        const std::shared_ptr<crypto::store::ICryptoStore>& cryptoStore,
        const std::shared_ptr<crypto::store::ITrustStore>& trustStore);

    /// An encoder that signs with the key of `keyId`, a handle of the crypto store, and puts that
    /// key's certificate chain into the container; with `includeRoot` also the chain's self-signed
    /// root, which a receiver must know anyway. Failures: `kInvalidArgument`,
    /// `kUnsupportedAlgorithm`, `kKeyNotFound`, `kCertificateNotFound`.
    crypto::common::ErrorOrObjectResult<TIVEResultCode,
                                        std::shared_ptr<processors::IAuxiliaryDataStapledEncoder>>
    CreateCertificateChainEncoder(SignatureAlgorithmType algorithm,
                                  const std::shared_ptr<const crypto::common::IKeyID>& keyId,
                                  bool includeRoot) const;

private:
    std::shared_ptr<crypto::ICryptoServiceProvider> mCryptoServiceProvider;
    std::shared_ptr<crypto::store::ICryptoStore> mCryptoStore;
    std::shared_ptr<crypto::store::ITrustStore> mTrustStore;
};

}  // namespace orv::sec::tive::factories
