#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <sys/types.h>

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "custody/pkcs11_module.h"
#include "errors/crypto_error.h"
#include "orv_sec_crypto/key_storage.h"

namespace orv::sec::crypto {

/// The P-256 keys of one store in a PKCS #11 token: a private key object, never extractable, and a
/// public key object for each, with the store's CKA_LABEL and a CKA_ID of their own.
///
/// The first operation opens a session and logs the user in; so does the next one after the session
/// was lost. A PIN that was refused is not tried again by this process until its file changes. None
/// is tried when the token reports that it is the last attempt, or that another process or another
/// user has tried a wrong one. Any thread, but not in a child after fork. All failures are
/// `CryptoError`: `kIntegrityError` when a key is not there, `kStorageError` for everything else.
class Pkcs11Token {
public:
    using KeyId = std::array<std::uint8_t, 16>;

    /// `settings.pinFile` is an absolute path.
    explicit Pkcs11Token(host::TokenKeyStorage settings);
    ~Pkcs11Token();
    Pkcs11Token(const Pkcs11Token&) = delete;
    Pkcs11Token& operator=(const Pkcs11Token&) = delete;

    /// Connects to the token and checks that it can make and use such keys.
    void CheckUsable();

    /// Ends the session; every operation fails from here on.
    void Close();

    /// Makes a key pair and returns its public point, uncompressed (SEC 1).
    common::ByteVector GenerateKeyPair(const KeyId& id);
    /// `scalar` is the private number in 32 bytes.
    void ImportKeyPair(const KeyId& id, const common::ByteVector& scalar,
                       const common::ByteVector& point);
    /// The public point of a key pair whose private key is there, too.
    common::ByteVector LoadPoint(const KeyId& id);
    /// The ECDSA signature as both numbers.
    common::ByteVector SignDigest(const KeyId& id, const std::uint8_t* digest, std::size_t size);
    /// Destroys all objects with the id.
    void Destroy(const KeyId& id);
    /// The ids of all keys, each once.
    std::vector<KeyId> List();

private:
    template <typename Work>
    auto Run(Work work);
    CK_FUNCTION_LIST& Functions() const { return mModule->Functions(); }
    bool HasSession() const;
    void OpenSession();
    void CloseSession();
    CK_SLOT_ID FindSlot() const;
    CK_TOKEN_INFO TokenInfo(CK_SLOT_ID slot) const;
    void LogIn(const CK_TOKEN_INFO& token);
    CryptoError Error(const std::string& why) const;
    void Require(CK_RV value, const std::string& what) const;
    std::vector<CK_OBJECT_HANDLE> Find(std::vector<CK_ATTRIBUTE> attributes) const;
    CK_OBJECT_HANDLE FindKey(const KeyId& id, CK_OBJECT_CLASS objectClass) const;
    common::ByteVector ReadAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;
    common::ByteVector ReadPoint(CK_OBJECT_HANDLE publicKey) const;
    void CreateObject(std::vector<CK_ATTRIBUTE> attributes);
    template <typename Work>
    auto OrDestroy(const KeyId& id, Work work);
    void CheckNeverLeaves(const KeyId& id) const;
    void DestroyObjects(const KeyId& id);

    const host::TokenKeyStorage mSettings;
    const pid_t mOwner;
    // Locked before the module's.
    std::mutex mMutex;
    Pkcs11Module* mModule = nullptr;
    CK_SESSION_HANDLE mSession = CK_INVALID_HANDLE;
    bool mIsClosed = false;
};

}  // namespace orv::sec::crypto
