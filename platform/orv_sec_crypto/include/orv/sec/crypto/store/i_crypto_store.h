#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/crypto/common/i_cert_id.h>
#include <orv/sec/crypto/common/i_key_id.h>

namespace orv::sec::crypto::store {

/// Selects the format of a signing request.
enum class CsrFormat : std::uint8_t {
    /// PKCS #10 (RFC 2986) with the common name as its only subject field.
    kPkcs10 = 0,
};

/// Selects what kind of key pair is made.
enum class KeyType : std::uint8_t {
    /// Elliptic curve P-256 (FIPS 186-4, secp256r1).
    kEcP256 = 2,
};

/// What all stores of the library have in common: key pairs, each with an optional certificate
/// chain attached, and certificates of their own, all under ids. Key pairs and certificates have
/// separate name spaces, except that `loadPublicKey` finds a certificate stored with
/// `storeCertificate`, too, where no key pair has the id.
///
/// A private key never leaves its store. Chains and certificates are in the library's format and
/// are stored as they come, once they parse. Each operation that changes the store is atomic: it
/// is done completely, and durably, or it fails and leaves the store as it was.
///
/// All operations may be called from any thread; each may block for the length of a store access
/// and none calls back. None throws except for lack of memory. Failures are `kInvalidArgument` for
/// a null or foreign handle or an empty argument, `kNotFound` for an id with nothing under it,
/// `kInvalidFormat` for bytes that do not parse, `kStorageError` for a store that can't be
/// accessed, `kIntegrityError` for keys that do not decrypt and certificates that do not parse,
/// `kInvalidState` once the library is cleaned up; others are named at the operation.
class ICryptoStore {
public:
    virtual ~ICryptoStore() = default;

    /// A key handle for a non-empty id; the key need not exist yet.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<const common::IKeyID>>
    makeKeyId(const std::string& id) = 0;

    /// A certificate handle for a non-empty id; the certificate need not exist yet.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<const common::ICertID>>
    makeCertId(const std::string& id) = 0;

    /// 0 when a key pair exists under the handle, else the value of a `CryptoResultCode`.
    virtual std::uint8_t checkKeyId(const std::shared_ptr<const common::IKeyID>& keyHandle) = 0;

    /// The bytes of a certificate stored with `storeCertificate` or provisioned.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, common::ByteVector>
    loadCertificate(const std::shared_ptr<const common::ICertID>& certHandle) = 0;

    /// The bytes of the chain attached to a key pair. `kNotFound` also for a pair without a chain.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, common::ByteVector>
    loadCertificateForKeyPair(const std::shared_ptr<const common::IKeyID>& keyHandle) = 0;

    /// The public half of a key pair or, where there is no such pair, the public key of the
    /// certificate that was stored under the same id. Equal keys give equal bytes.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, common::ByteVector> loadPublicKey(
        const std::shared_ptr<const common::IKeyID>& keyHandle) = 0;

    /// Stores a certificate, in the place of the one that is there.
    virtual common::CryptoResultCode storeCertificate(
        const std::shared_ptr<const common::ICertID>& certHandle,
        const common::ByteVector& bytes) = 0;

    /// Attaches a chain to an existing key pair, in the place of the one that is there.
    /// `kKeyMismatch` when the first certificate of the chain is not for this key.
    virtual common::CryptoResultCode storeCertificateForKeyPair(
        const std::shared_ptr<const common::IKeyID>& keyHandle,
        const common::ByteVector& bytes) = 0;

    /// Moves a key pair with its chain to another id, at which there must be none
    /// (`kAlreadyExists`).
    virtual common::CryptoResultCode moveKeyPair(
        std::shared_ptr<const common::IKeyID> sourceHandle,
        std::shared_ptr<const common::IKeyID> destinationHandle) = 0;

    /// A signing request for the key pair, signed with it. `subject` becomes the common name.
    /// `kUnsupported` for another format, `kTooLarge` for a subject over 64 characters (RFC 5280,
    /// ub-common-name).
    virtual common::ErrorOrObjectResult<common::CryptoResultCode, common::ByteVector> generateCsr(
        const std::string& subject, const CsrFormat& format,
        const std::shared_ptr<const common::IKeyID>& keyHandle) = 0;

    /// Makes a key pair under an id at which there must be none (`kAlreadyExists`).
    /// `kUnsupported` for another key type.
    virtual common::CryptoResultCode generateKeyPair(
        const std::shared_ptr<const common::IKeyID>& keyHandle, const KeyType& keyType) = 0;

    /// Deletes a key pair with its chain; `kNotFound` when there was none.
    virtual common::CryptoResultCode deleteKeyPair(
        const std::shared_ptr<const common::IKeyID>& keyHandle) = 0;
};

}  // namespace orv::sec::crypto::store
