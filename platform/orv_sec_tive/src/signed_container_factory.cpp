#include <utility>
#include <vector>

#include <openssl/err.h>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/tive/factories/signed_container_factory.h>

#include "certificate_chain_encoder.h"
#include "tive_error.h"
namespace orv::sec::tive::factories {

namespace {

using crypto::common::ByteVector;
using crypto::common::CryptoResultCode;
using crypto::common::IKeyID;
using crypto::store::ICryptoStore;
using KeyHandle = std::shared_ptr<const IKeyID>;

void CheckSigningKey(ICryptoStore& store, const KeyHandle& keyId) {
    const auto code = static_cast<CryptoResultCode>(store.checkKeyId(keyId));
    if (code == CryptoResultCode::kSuccess) {
        return;
    }
    if (code == CryptoResultCode::kNotFound) {
        throw TiveError(TIVEResultCode::kKeyNotFound, "there is no such key");
    }
    if (code == CryptoResultCode::kInvalidArgument) {
        throw TiveError(TIVEResultCode::kInvalidArgument, "the handle is one of another store");
    }
    throw TiveError(TIVEResultCode::kFailure, "the crypto store refuses to look for the key");
}

/// The chain that a store gave; empty if it has none.
ByteVector RequireChainOrNone(
    crypto::common::ErrorOrObjectResult<CryptoResultCode, ByteVector> loaded) {
    if (loaded.IsSuccess()) {
        return std::move(loaded).GetObject();
    }
    if (loaded.GetCode() == CryptoResultCode::kNotFound) {
        return {};
    }
    throw TiveError(TIVEResultCode::kFailure, "the chain cannot be loaded: " + loaded.GetMessage());
}

/// The certificate that a store holds under an id, without a key; empty if there is none.
ByteVector LoadCertificate(ICryptoStore& store, const std::string& id) {
    const auto certId = store.makeCertId(id);
    if (!certId.IsSuccess()) {
        throw TiveError(TIVEResultCode::kFailure,
                        "the key's id names no certificate: " + certId.GetMessage());
    }
    return RequireChainOrNone(store.loadCertificate(certId.GetObject()));
}

ByteVector FindChain(ICryptoStore& cryptoStore, ICryptoStore& trustStore, const KeyHandle& keyId) {
    ByteVector chain = RequireChainOrNone(cryptoStore.loadCertificateForKeyPair(keyId));
    for (ICryptoStore* store : {&cryptoStore, &trustStore}) {
        if (chain.empty()) {
            chain = LoadCertificate(*store, keyId->getId());
        }
    }
    if (chain.empty()) {
        throw TiveError(TIVEResultCode::kCertificateNotFound, "the key has no certificate chain");
    }
    return chain;
}

X509Ptr ParseCertificate(const ByteVector& der) {
    const unsigned char* position = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
    if (certificate == nullptr) {
        ERR_clear_error();
        throw TiveError(TIVEResultCode::kCertificateNotFound, "the certificate does not parse");
    }
    return certificate;
}

// Comparing names is not enough: a CA that changes to a new key issues a certificate to itself,
// which a receiver needs.
bool IsSelfSigned(X509& certificate) {
    const bool isSelfSigned = X509_self_signed(&certificate, 1) == 1;
    ERR_clear_error();
    return isSelfSigned;
}

std::vector<X509Ptr> ParseChain(crypto::ICryptoServiceProvider& provider, const ByteVector& bytes,
                                bool includeRoot) {
    const auto handler = provider.createCertificateHandler();
    if (!handler.IsSuccess() || handler.GetObject() == nullptr) {
        throw TiveError(TIVEResultCode::kFailure, "there is no certificate handler");
    }
    const auto elements = handler.GetObject()->splitCertificatesChain(bytes);
    if (!elements.IsSuccess() || elements.GetObject().empty()) {
        throw TiveError(TIVEResultCode::kCertificateNotFound, "the chain does not parse");
    }
    std::vector<X509Ptr> chain;
    for (const ByteVector& element : elements.GetObject()) {
        X509Ptr certificate = ParseCertificate(element);
        // The signer's own certificate always travels.
        if (chain.empty() || includeRoot || !IsSelfSigned(*certificate)) {
            chain.push_back(std::move(certificate));
        }
    }
    return chain;
}

}  // namespace

SignedContainerFactory::SignedContainerFactory(
    const std::shared_ptr<crypto::ICryptoServiceProvider>& cryptoServiceProvider,
    const std::shared_ptr<crypto::store::ICryptoStore>& cryptoStore,
    const std::shared_ptr<crypto::store::ITrustStore>& trustStore)
    : mCryptoServiceProvider(cryptoServiceProvider),
      mCryptoStore(cryptoStore),
      mTrustStore(trustStore) {}

crypto::common::ErrorOrObjectResult<TIVEResultCode,
                                    std::shared_ptr<processors::IAuxiliaryDataStapledEncoder>>
SignedContainerFactory::CreateCertificateChainEncoder(SignatureAlgorithmType algorithm,
                                                      const KeyHandle& keyId,
                                                      bool includeRoot) const {
    using Result = crypto::common::ErrorOrObjectResult<
        TIVEResultCode, std::shared_ptr<processors::IAuxiliaryDataStapledEncoder>>;
    if (mCryptoServiceProvider == nullptr || mCryptoStore == nullptr || mTrustStore == nullptr ||
        keyId == nullptr) {
        return Result::Error(TIVEResultCode::kInvalidArgument, "a null pointer");
    }
    if (algorithm != SignatureAlgorithmType::kEcdsaSha256) {
        return Result::Error(TIVEResultCode::kUnsupportedAlgorithm, "unknown signature algorithm");
    }
    try {
        CheckSigningKey(*mCryptoStore, keyId);
        auto chain = ParseChain(*mCryptoServiceProvider,
                                FindChain(*mCryptoStore, *mTrustStore, keyId), includeRoot);
        return Result::Success(
            std::make_shared<CertificateChainEncoder>(mCryptoStore, keyId, std::move(chain)));
    } catch (const TiveError& error) {
        return Result::Error(error.Code(), error.what());
    }
}

}  // namespace orv::sec::tive::factories
