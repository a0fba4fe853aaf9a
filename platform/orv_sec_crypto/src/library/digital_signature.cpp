#include "library/digital_signature.h"

#include "keys/ec_key.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

DigitalSignature::DigitalSignature(const StoredId& key) : mKey(key) {
    mKey.Database()->LoadPublicKey(mKey.Entry());
}

CryptoResult<ByteVector> DigitalSignature::sign(const ByteVector& content) {
    return RunForResult<ByteVector>(
        "sign", [&] { return Sign(*mKey.Database()->LoadPrivateKey(mKey.Entry()), content); });
}

CryptoResultCode DigitalSignature::verify(const ByteVector& signature, const ByteVector& content) {
    return RunOperation("verify", [&] {
        if (!Verify(*mKey.Database()->LoadPublicKey(mKey.Entry()), signature, content)) {
            throw CryptoError(CryptoResultCode::kVerificationFailed,
                              "the signature is not one of key '" + mKey.Entry().id + "'");
        }
    });
}

}  // namespace orv::sec::crypto
