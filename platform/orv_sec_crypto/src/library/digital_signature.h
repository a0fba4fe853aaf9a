#pragma once

#include <memory>

#include <orv/sec/crypto/operation/i_digital_signature.h>

#include "errors/crypto_error.h"
#include "library/crypto_store.h"

namespace orv::sec::crypto {

/// Reads the key from the store for each operation and keeps none in memory.
class DigitalSignature final : public operation::IDigitalSignature {
public:
    /// `kNotFound` when there is neither a key pair nor a certificate at the place.
    explicit DigitalSignature(const StoredId& key);

    CryptoResult<common::ByteVector> sign(const common::ByteVector& content) override;
    common::CryptoResultCode verify(const common::ByteVector& signature,
                                    const common::ByteVector& content) override;

private:
    const StoredId mKey;
};

}  // namespace orv::sec::crypto
