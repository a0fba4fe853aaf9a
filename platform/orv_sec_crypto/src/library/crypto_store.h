#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <orv/sec/crypto/common/i_cert_id.h>
#include <orv/sec/crypto/common/i_key_id.h>
#include <orv/sec/crypto/store/i_koru_store.h>
#include <orv/sec/crypto/store/i_trust_store.h>

#include "errors/crypto_error.h"
#include "store/store_database.h"

namespace orv::sec::crypto {

/// A place in a store, behind both kinds of handles.
class StoredId {
public:
    StoredId(std::shared_ptr<StoreDatabase> database, EntryId entry)
        : mDatabase(std::move(database)), mEntry(std::move(entry)) {}

    const std::shared_ptr<StoreDatabase>& Database() const { return mDatabase; }
    const EntryId& Entry() const { return mEntry; }

private:
    std::shared_ptr<StoreDatabase> mDatabase;
    EntryId mEntry;
};

class KeyId final : public common::IKeyID, public StoredId {
public:
    using StoredId::StoredId;
    const std::string& getId() const override { return Entry().id; }
};

class CertId final : public common::ICertID, public StoredId {
public:
    using StoredId::StoredId;
    const std::string& getId() const override { return Entry().id; }
};

/// The place behind a key handle of this library; `kInvalidArgument` for null and for foreign ones.
const StoredId& ResolveKeyId(const common::IKeyID* keyId);

/// Which store an `ICryptoStore` of this library stands for.
class StoreLocation {
public:
    StoreLocation(std::shared_ptr<StoreDatabase> database, std::string name)
        : mDatabase(std::move(database)), mName(std::move(name)) {}

    bool Holds(const StoredId& id) const {
        return id.Database() == mDatabase && id.Entry().store == mName;
    }

protected:
    ~StoreLocation() = default;

    std::shared_ptr<StoreDatabase> mDatabase;
    std::string mName;
};

/// A store of the kind `Interface`: writable as `store::ITrustStore`, read only as
/// `store::IKORUStore`.
template <typename Interface>
class CryptoStore final : public Interface, public StoreLocation {
public:
    using StoreLocation::StoreLocation;

    CryptoResult<std::shared_ptr<const common::IKeyID>> makeKeyId(const std::string& id) override;
    CryptoResult<std::shared_ptr<const common::ICertID>> makeCertId(const std::string& id) override;
    std::uint8_t checkKeyId(const std::shared_ptr<const common::IKeyID>& keyHandle) override;
    CryptoResult<common::ByteVector> loadCertificate(
        const std::shared_ptr<const common::ICertID>& certHandle) override;
    CryptoResult<common::ByteVector> loadCertificateForKeyPair(
        const std::shared_ptr<const common::IKeyID>& keyHandle) override;
    CryptoResult<common::ByteVector> loadPublicKey(
        const std::shared_ptr<const common::IKeyID>& keyHandle) override;
    common::CryptoResultCode storeCertificate(
        const std::shared_ptr<const common::ICertID>& certHandle,
        const common::ByteVector& bytes) override;
    common::CryptoResultCode storeCertificateForKeyPair(
        const std::shared_ptr<const common::IKeyID>& keyHandle,
        const common::ByteVector& bytes) override;
    common::CryptoResultCode moveKeyPair(
        std::shared_ptr<const common::IKeyID> sourceHandle,
        std::shared_ptr<const common::IKeyID> destinationHandle) override;
    CryptoResult<common::ByteVector> generateCsr(
        const std::string& subject, const store::CsrFormat& format,
        const std::shared_ptr<const common::IKeyID>& keyHandle) override;
    common::CryptoResultCode generateKeyPair(const std::shared_ptr<const common::IKeyID>& keyHandle,
                                             const store::KeyType& keyType) override;
    common::CryptoResultCode deleteKeyPair(
        const std::shared_ptr<const common::IKeyID>& keyHandle) override;

private:
    const EntryId& ResolveKey(const std::shared_ptr<const common::IKeyID>& handle) const;
    const EntryId& ResolveCertificate(const std::shared_ptr<const common::ICertID>& handle) const;
    static void CheckWritable();
};

using TrustStore = CryptoStore<store::ITrustStore>;
using KoruStore = CryptoStore<store::IKORUStore>;

}  // namespace orv::sec::crypto
