#include "custody/pkcs11_token.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "files/protected_file.h"
#include "keys/p256_encoding.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr FileDemands kPinFile{"PIN file", FileProtection::kSecret, 1, 256};
constexpr std::size_t kMaxAttributeBytes = 4096;
// The OID prime256v1 in DER.
constexpr std::array<std::uint8_t, 10> kCurve{0x06, 0x08, 0x2a, 0x86, 0x48,
                                              0xce, 0x3d, 0x03, 0x01, 0x07};
// An OCTET STRING of 65 bytes, as which CKA_EC_POINT is given.
constexpr std::array<std::uint8_t, 2> kPointStart{0x04, 0x41};

constexpr CK_BBOOL kYes = CK_TRUE;
constexpr CK_BBOOL kNo = CK_FALSE;
constexpr CK_OBJECT_CLASS kPrivateKey = CKO_PRIVATE_KEY;
constexpr CK_OBJECT_CLASS kPublicKey = CKO_PUBLIC_KEY;
constexpr CK_KEY_TYPE kEcKey = CKK_EC;

// The interface takes pointers to non-const, but changes none of the values.
CK_ATTRIBUTE Attribute(CK_ATTRIBUTE_TYPE type, const void* value, std::size_t size) {
    return {type, const_cast<void*>(value), static_cast<CK_ULONG>(size)};
}

template <typename T>
CK_ATTRIBUTE Attribute(CK_ATTRIBUTE_TYPE type, const T& value) {
    return Attribute(type, &value, sizeof(value));
}

std::vector<CK_ATTRIBUTE> KeyAttributes(const std::string& label, const Pkcs11Token::KeyId& id,
                                        const CK_OBJECT_CLASS& objectClass) {
    return {Attribute(CKA_CLASS, objectClass), Attribute(CKA_TOKEN, kYes),
            Attribute(CKA_LABEL, label.data(), label.size()),
            Attribute(CKA_ID, id.data(), id.size())};
}

std::vector<CK_ATTRIBUTE> PublicKeyAttributes(const std::string& label,
                                              const Pkcs11Token::KeyId& id) {
    auto attributes = KeyAttributes(label, id, kPublicKey);
    attributes.insert(attributes.end(),
                      {Attribute(CKA_KEY_TYPE, kEcKey), Attribute(CKA_VERIFY, kYes),
                       Attribute(CKA_EC_PARAMS, kCurve)});
    return attributes;
}

std::vector<CK_ATTRIBUTE> PrivateKeyAttributes(const std::string& label,
                                               const Pkcs11Token::KeyId& id) {
    auto attributes = KeyAttributes(label, id, kPrivateKey);
    attributes.insert(
        attributes.end(),
        {Attribute(CKA_KEY_TYPE, kEcKey), Attribute(CKA_PRIVATE, kYes),
         Attribute(CKA_SENSITIVE, kYes), Attribute(CKA_EXTRACTABLE, kNo), Attribute(CKA_SIGN, kYes),
         Attribute(CKA_DECRYPT, kNo), Attribute(CKA_UNWRAP, kNo), Attribute(CKA_DERIVE, kNo)});
    return attributes;
}

// Fields of fixed width, padded with blanks.
template <std::size_t Size>
std::string Trimmed(const unsigned char (&field)[Size]) {
    std::string text(field, field + Size);
    text.erase(text.find_last_not_of(std::string_view(" \0", 2)) + 1);
    return text;
}

bool IsRefusedPin(CK_RV value) {
    switch (value) {
        case CKR_PIN_INCORRECT:
        case CKR_PIN_INVALID:
        case CKR_PIN_LEN_RANGE:
        case CKR_PIN_EXPIRED:
        case CKR_PIN_LOCKED:
            return true;
        default:
            return false;
    }
}

void DropLineEnd(ByteVector& pin) {
    for (const char end : {'\n', '\r'}) {
        if (!pin.empty() && pin.back() == static_cast<std::uint8_t>(end)) {
            pin.pop_back();
        }
    }
}

}  // namespace

Pkcs11Token::Pkcs11Token(host::TokenKeyStorage settings)
    : mSettings(std::move(settings)), mOwner(::getpid()) {}

Pkcs11Token::~Pkcs11Token() {
    Close();
}

CryptoError Pkcs11Token::Error(const std::string& why) const {
    const std::string name =
        mSettings.slot ? "in slot " + std::to_string(*mSettings.slot) : "'" + mSettings.token + "'";
    return CryptoError(CryptoResultCode::kStorageError, "token " + name + ": " + why);
}

void Pkcs11Token::Require(CK_RV value, const std::string& what) const {
    if (value != CKR_OK) {
        throw Error(what + ": " + DescribeReturnValue(value));
    }
}

template <typename Work>
auto Pkcs11Token::Run(Work work) {
    // The parent's threads may have held the mutexes at the fork, and no thread in the child
    // releases them.
    if (mOwner != ::getpid()) {
        throw Error("belongs to the parent process");
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mIsClosed) {
        throw CryptoError(CryptoResultCode::kInvalidState, "the library is not open");
    }
    if (mModule == nullptr) {
        mModule = &Pkcs11Module::Load(mSettings.module);
    }
    const std::lock_guard<std::mutex> moduleLock(mModule->Mutex());
    try {
        if (!HasSession()) {
            CloseSession();
            OpenSession();
        }
        return work();
    } catch (const CryptoError& error) {
        // Whatever happened to the token, the next operation opens a new session.
        if (error.Code() == CryptoResultCode::kStorageError) {
            CloseSession();
        }
        throw;
    }
}

void Pkcs11Token::Close() {
    if (mOwner != ::getpid()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsClosed = true;
    if (mModule != nullptr) {
        const std::lock_guard<std::mutex> moduleLock(mModule->Mutex());
        CloseSession();
    }
}

// The login ends with the last session of the process.
void Pkcs11Token::CloseSession() {
    if (mSession != CK_INVALID_HANDLE && mModule->IsUsable()) {
        Functions().C_CloseSession(mSession);
    }
    mSession = CK_INVALID_HANDLE;
}

bool Pkcs11Token::HasSession() const {
    CK_SESSION_INFO info{};
    return mSession != CK_INVALID_HANDLE &&
           Functions().C_GetSessionInfo(mSession, &info) == CKR_OK &&
           info.state == CKS_RW_USER_FUNCTIONS;
}

CK_TOKEN_INFO Pkcs11Token::TokenInfo(CK_SLOT_ID slot) const {
    CK_TOKEN_INFO info{};
    Require(Functions().C_GetTokenInfo(slot, &info), "cannot be asked");
    return info;
}

CK_SLOT_ID Pkcs11Token::FindSlot() const {
    if (mSettings.slot) {
        return *mSettings.slot;
    }
    CK_ULONG count = 0;
    Require(Functions().C_GetSlotList(kYes, nullptr, &count), "no slots");
    std::vector<CK_SLOT_ID> slots(count);
    Require(Functions().C_GetSlotList(kYes, slots.data(), &count), "no slots");
    slots.resize(count);
    slots.erase(std::remove_if(slots.begin(), slots.end(),
                               [this](CK_SLOT_ID slot) {
                                   CK_TOKEN_INFO info{};
                                   return Functions().C_GetTokenInfo(slot, &info) != CKR_OK ||
                                          Trimmed(info.label) != mSettings.token;
                               }),
                slots.end());
    if (slots.empty()) {
        throw Error("there is none of this label");
    }
    if (slots.size() > 1) {
        throw Error("there are several of this label");
    }
    return slots.front();
}

void Pkcs11Token::OpenSession() {
    const CK_SLOT_ID slot = FindSlot();
    const CK_TOKEN_INFO token = TokenInfo(slot);
    if ((token.flags & CKF_TOKEN_INITIALIZED) == 0) {
        throw Error("was never initialised");
    }
    Require(Functions().C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                      &mSession),
            "no session");
    LogIn(token);
}

void Pkcs11Token::LogIn(const CK_TOKEN_INFO& token) {
    const auto file = ProtectedFile::Open(mSettings.pinFile, kPinFile);
    if (file == nullptr) {
        throw CryptoError(CryptoResultCode::kStorageError,
                          mSettings.pinFile + ": PIN file is not there");
    }
    std::string& refused = mModule->RefusedPin(Trimmed(token.serialNumber));
    if (refused == file->Version()) {
        throw Error("its PIN was refused, and is not tried again until " + mSettings.pinFile +
                    " changes");
    }
    if ((token.flags & (CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED)) != 0) {
        throw Error("the PIN is locked, or one wrong attempt away from it");
    }
    // Each start of the service would try its PIN, and each costs an attempt if it is wrong.
    if ((token.flags & CKF_USER_PIN_COUNT_LOW) != 0 && refused.empty()) {
        throw Error(
            "a wrong PIN was tried before; none is tried here until somebody has logged in with "
            "the right one");
    }
    ByteVector pin = file->Read();
    DropLineEnd(pin);
    const CK_RV value = Functions().C_Login(mSession, CKU_USER, pin.data(), pin.size());
    if (value == CKR_USER_ALREADY_LOGGED_IN) {
        return;
    }
    if (IsRefusedPin(value)) {
        refused = file->Version();
    }
    Require(value, "login refused");
    refused.clear();
}

void Pkcs11Token::CheckUsable() {
    Run([&] {
        CK_SESSION_INFO session{};
        Require(Functions().C_GetSessionInfo(mSession, &session), "cannot be asked");
        for (const CK_MECHANISM_TYPE mechanism : {CKM_EC_KEY_PAIR_GEN, CKM_ECDSA}) {
            CK_MECHANISM_INFO info{};
            Require(Functions().C_GetMechanismInfo(session.slotID, mechanism, &info),
                    "cannot make keys for ECDSA, or not sign with them");
        }
    });
}

std::vector<CK_OBJECT_HANDLE> Pkcs11Token::Find(std::vector<CK_ATTRIBUTE> attributes) const {
    Require(Functions().C_FindObjectsInit(mSession, attributes.data(), attributes.size()),
            "cannot look for keys");
    std::vector<CK_OBJECT_HANDLE> found;
    std::array<CK_OBJECT_HANDLE, 32> part{};
    CK_ULONG count = 0;
    CK_RV value = CKR_OK;
    do {
        value = Functions().C_FindObjects(mSession, part.data(), part.size(), &count);
        if (value == CKR_OK) {
            found.insert(found.end(), part.begin(), part.begin() + count);
        }
    } while (value == CKR_OK && count > 0);
    Functions().C_FindObjectsFinal(mSession);
    Require(value, "cannot look for keys");
    return found;
}

CK_OBJECT_HANDLE Pkcs11Token::FindKey(const KeyId& id, CK_OBJECT_CLASS objectClass) const {
    const auto found = Find(KeyAttributes(mSettings.label, id, objectClass));
    if (found.size() != 1) {
        throw CryptoError(
            CryptoResultCode::kIntegrityError,
            Error(found.empty() ? "the key is not there" : "there are several keys of one id")
                .what());
    }
    return found.front();
}

ByteVector Pkcs11Token::ReadAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
    CK_ATTRIBUTE attribute = Attribute(type, nullptr, 0);
    Require(Functions().C_GetAttributeValue(mSession, object, &attribute, 1), "cannot read a key");
    if (attribute.ulValueLen > kMaxAttributeBytes) {
        throw Error("cannot read a key");
    }
    ByteVector value(attribute.ulValueLen);
    attribute.pValue = value.data();
    Require(Functions().C_GetAttributeValue(mSession, object, &attribute, 1), "cannot read a key");
    value.resize(std::min<std::size_t>(attribute.ulValueLen, value.size()));
    return value;
}

ByteVector Pkcs11Token::ReadPoint(CK_OBJECT_HANDLE publicKey) const {
    ByteVector point = ReadAttribute(publicKey, CKA_EC_POINT);
    // Some tokens omit the OCTET STRING.
    if (point.size() == kPointStart.size() + kP256PointBytes &&
        std::equal(kPointStart.begin(), kPointStart.end(), point.begin())) {
        point.erase(point.begin(), point.begin() + kPointStart.size());
    }
    return point;
}

// An unusable key must not remain in the token.
template <typename Work>
auto Pkcs11Token::OrDestroy(const KeyId& id, Work work) {
    try {
        return work();
    } catch (const CryptoError&) {
        DestroyObjects(id);
        throw;
    }
}

// Some modules ignore attributes that a template requires.
void Pkcs11Token::CheckNeverLeaves(const KeyId& id) const {
    const CK_OBJECT_HANDLE key = FindKey(id, kPrivateKey);
    if (ReadAttribute(key, CKA_SENSITIVE) != ByteVector{CK_TRUE} ||
        ReadAttribute(key, CKA_EXTRACTABLE) != ByteVector{CK_FALSE}) {
        throw Error("makes keys that could leave it");
    }
}

ByteVector Pkcs11Token::GenerateKeyPair(const KeyId& id) {
    return Run([&] {
        auto publicKey = PublicKeyAttributes(mSettings.label, id);
        auto privateKey = PrivateKeyAttributes(mSettings.label, id);
        CK_MECHANISM mechanism{CKM_EC_KEY_PAIR_GEN, nullptr, 0};
        CK_OBJECT_HANDLE publicHandle = CK_INVALID_HANDLE;
        CK_OBJECT_HANDLE privateHandle = CK_INVALID_HANDLE;
        Require(Functions().C_GenerateKeyPair(mSession, &mechanism, publicKey.data(),
                                              publicKey.size(), privateKey.data(),
                                              privateKey.size(), &publicHandle, &privateHandle),
                "cannot make a key pair");
        return OrDestroy(id, [&] {
            CheckNeverLeaves(id);
            return ReadPoint(publicHandle);
        });
    });
}

void Pkcs11Token::CreateObject(std::vector<CK_ATTRIBUTE> attributes) {
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    Require(Functions().C_CreateObject(mSession, attributes.data(), attributes.size(), &handle),
            "cannot take over a key");
}

void Pkcs11Token::ImportKeyPair(const KeyId& id, const ByteVector& scalar,
                                const ByteVector& point) {
    Run([&] {
        auto privateKey = PrivateKeyAttributes(mSettings.label, id);
        privateKey.push_back(Attribute(CKA_EC_PARAMS, kCurve));
        privateKey.push_back(Attribute(CKA_VALUE, scalar.data(), scalar.size()));
        CreateObject(std::move(privateKey));
        ByteVector encoded(kPointStart.begin(), kPointStart.end());
        encoded.insert(encoded.end(), point.begin(), point.end());
        auto publicKey = PublicKeyAttributes(mSettings.label, id);
        publicKey.push_back(Attribute(CKA_EC_POINT, encoded.data(), encoded.size()));
        OrDestroy(id, [&] {
            CheckNeverLeaves(id);
            CreateObject(std::move(publicKey));
        });
    });
}

ByteVector Pkcs11Token::LoadPoint(const KeyId& id) {
    return Run([&] {
        FindKey(id, kPrivateKey);
        return ReadPoint(FindKey(id, kPublicKey));
    });
}

ByteVector Pkcs11Token::SignDigest(const KeyId& id, const std::uint8_t* digest, std::size_t size) {
    return Run([&] {
        CK_MECHANISM mechanism{CKM_ECDSA, nullptr, 0};
        Require(Functions().C_SignInit(mSession, &mechanism, FindKey(id, kPrivateKey)),
                "cannot sign");
        ByteVector signature(2 * kP256NumberBytes);
        CK_ULONG signatureSize = signature.size();
        Require(Functions().C_Sign(mSession, const_cast<std::uint8_t*>(digest), size,
                                   signature.data(), &signatureSize),
                "cannot sign");
        signature.resize(std::min<std::size_t>(signatureSize, signature.size()));
        return signature;
    });
}

void Pkcs11Token::DestroyObjects(const KeyId& id) {
    for (const CK_OBJECT_CLASS objectClass : {kPrivateKey, kPublicKey}) {
        for (const CK_OBJECT_HANDLE object :
             Find(KeyAttributes(mSettings.label, id, objectClass))) {
            Require(Functions().C_DestroyObject(mSession, object), "cannot destroy a key");
        }
    }
}

void Pkcs11Token::Destroy(const KeyId& id) {
    Run([&] { DestroyObjects(id); });
}

std::vector<Pkcs11Token::KeyId> Pkcs11Token::List() {
    return Run([&] {
        std::set<KeyId> ids;
        for (const CK_OBJECT_CLASS& objectClass : {kPrivateKey, kPublicKey}) {
            const auto& label = mSettings.label;
            for (const CK_OBJECT_HANDLE object :
                 Find({Attribute(CKA_CLASS, objectClass), Attribute(CKA_TOKEN, kYes),
                       Attribute(CKA_LABEL, label.data(), label.size())})) {
                const ByteVector bytes = ReadAttribute(object, CKA_ID);
                KeyId id{};
                if (bytes.size() == id.size()) {
                    std::copy(bytes.begin(), bytes.end(), id.begin());
                    ids.insert(id);
                }
            }
        }
        return std::vector<KeyId>(ids.begin(), ids.end());
    });
}

}  // namespace orv::sec::crypto
