#include "library/crypto_store.h"

#include <type_traits>

#include "keys/ec_key.h"
#include "x509/certificate_parser.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;
using common::ICertID;
using common::IKeyID;

namespace {

template <typename Handle, typename Interface>
const StoredId& Resolve(const Interface* handle) {
    const auto* resolved = dynamic_cast<const Handle*>(handle);
    if (resolved == nullptr) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the handle is null or foreign");
    }
    return *resolved;
}

const EntryId& CheckHeld(const StoreLocation& location, const StoredId& id) {
    if (!location.Holds(id)) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "the handle is one of another store");
    }
    return id.Entry();
}

void CheckNotEmpty(const ByteVector& certificates) {
    if (certificates.empty()) {
        throw CryptoError(CryptoResultCode::kInvalidArgument, "there are no certificate bytes");
    }
}

}  // namespace

const StoredId& ResolveKeyId(const IKeyID* keyId) {
    return Resolve<KeyId>(keyId);
}

template <typename Interface>
const EntryId& CryptoStore<Interface>::ResolveKey(
    const std::shared_ptr<const IKeyID>& handle) const {
    return CheckHeld(*this, ResolveKeyId(handle.get()));
}

template <typename Interface>
const EntryId& CryptoStore<Interface>::ResolveCertificate(
    const std::shared_ptr<const ICertID>& handle) const {
    return CheckHeld(*this, Resolve<CertId>(handle.get()));
}

template <typename Interface>
void CryptoStore<Interface>::CheckWritable() {
    if constexpr (std::is_same_v<Interface, store::IKORUStore>) {
        throw CryptoError(CryptoResultCode::kAccessDenied, "the key-management store is read only");
    }
}

template <typename Interface>
CryptoResult<std::shared_ptr<const IKeyID>> CryptoStore<Interface>::makeKeyId(
    const std::string& id) {
    return RunForResult<std::shared_ptr<const IKeyID>>("makeKeyId", [&] {
        mDatabase->CheckOpen();
        CheckId(id);
        return std::make_shared<const KeyId>(mDatabase, EntryId{mName, id});
    });
}

template <typename Interface>
CryptoResult<std::shared_ptr<const ICertID>> CryptoStore<Interface>::makeCertId(
    const std::string& id) {
    return RunForResult<std::shared_ptr<const ICertID>>("makeCertId", [&] {
        mDatabase->CheckOpen();
        CheckId(id);
        return std::make_shared<const CertId>(mDatabase, EntryId{mName, id});
    });
}

template <typename Interface>
std::uint8_t CryptoStore<Interface>::checkKeyId(const std::shared_ptr<const IKeyID>& keyHandle) {
    return static_cast<std::uint8_t>(RunOperation("checkKeyId", [&] {
        const EntryId& entry = ResolveKey(keyHandle);
        if (!mDatabase->HasKeyPair(entry)) {
            throw CryptoError(CryptoResultCode::kNotFound, "no key pair '" + entry.id + "'");
        }
    }));
}

template <typename Interface>
CryptoResult<ByteVector> CryptoStore<Interface>::loadCertificate(
    const std::shared_ptr<const ICertID>& certHandle) {
    return RunForResult<ByteVector>("loadCertificate", [&] {
        return mDatabase->LoadCertificate(ResolveCertificate(certHandle));
    });
}

template <typename Interface>
CryptoResult<ByteVector> CryptoStore<Interface>::loadCertificateForKeyPair(
    const std::shared_ptr<const IKeyID>& keyHandle) {
    return RunForResult<ByteVector>("loadCertificateForKeyPair",
                                    [&] { return mDatabase->LoadChain(ResolveKey(keyHandle)); });
}

template <typename Interface>
CryptoResult<ByteVector> CryptoStore<Interface>::loadPublicKey(
    const std::shared_ptr<const IKeyID>& keyHandle) {
    return RunForResult<ByteVector>("loadPublicKey", [&] {
        return EncodePublicKey(*mDatabase->LoadPublicKey(ResolveKey(keyHandle)));
    });
}

template <typename Interface>
CryptoResultCode CryptoStore<Interface>::storeCertificate(
    const std::shared_ptr<const ICertID>& certHandle, const ByteVector& bytes) {
    return RunOperation("storeCertificate", [&] {
        CheckWritable();
        CheckNotEmpty(bytes);
        mDatabase->StoreCertificate(ResolveCertificate(certHandle), bytes);
    });
}

template <typename Interface>
CryptoResultCode CryptoStore<Interface>::storeCertificateForKeyPair(
    const std::shared_ptr<const IKeyID>& keyHandle, const ByteVector& bytes) {
    return RunOperation("storeCertificateForKeyPair", [&] {
        CheckWritable();
        CheckNotEmpty(bytes);
        mDatabase->StoreChain(ResolveKey(keyHandle), bytes);
    });
}

template <typename Interface>
CryptoResultCode CryptoStore<Interface>::moveKeyPair(
    std::shared_ptr<const IKeyID> sourceHandle, std::shared_ptr<const IKeyID> destinationHandle) {
    return RunOperation("moveKeyPair", [&] {
        CheckWritable();
        mDatabase->MoveKeyPair(ResolveKey(sourceHandle), ResolveKey(destinationHandle));
    });
}

template <typename Interface>
CryptoResult<ByteVector> CryptoStore<Interface>::generateCsr(
    const std::string& subject, const store::CsrFormat& format,
    const std::shared_ptr<const IKeyID>& keyHandle) {
    return RunForResult<ByteVector>("generateCsr", [&] {
        const EntryId& entry = ResolveKey(keyHandle);
        if (format != store::CsrFormat::kPkcs10) {
            throw CryptoError(CryptoResultCode::kUnsupported, "unknown request format");
        }
        return MakeSigningRequest(*mDatabase->LoadPrivateKey(entry), subject);
    });
}

template <typename Interface>
CryptoResultCode CryptoStore<Interface>::generateKeyPair(
    const std::shared_ptr<const IKeyID>& keyHandle, const store::KeyType& keyType) {
    return RunOperation("generateKeyPair", [&] {
        CheckWritable();
        const EntryId& entry = ResolveKey(keyHandle);
        if (keyType != store::KeyType::kEcP256) {
            throw CryptoError(CryptoResultCode::kUnsupported, "unknown key type");
        }
        mDatabase->GenerateKeyPair(entry);
    });
}

template <typename Interface>
CryptoResultCode CryptoStore<Interface>::deleteKeyPair(
    const std::shared_ptr<const IKeyID>& keyHandle) {
    return RunOperation("deleteKeyPair", [&] {
        CheckWritable();
        mDatabase->DeleteKeyPair(ResolveKey(keyHandle));
    });
}

template class CryptoStore<store::ITrustStore>;
template class CryptoStore<store::IKORUStore>;

}  // namespace orv::sec::crypto
