#include "certificates/client_cert_initializer_api_impl.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <orv/sec/crypto/common/i_cert_id.h>
#include <orv/sec/crypto/common/i_key_id.h>
#include <orv/sec/crypto/operation/i_digital_signature.h>
#include <orv/sec/crypto/store/i_crypto_store.h>

#include "certificates/certificate_ids.h"
#include "certificates/crypto_api_instance.h"
#include "certificates/library_results.h"
#include "certificates/library_values.h"
#include "logging/qel_logging.h"

namespace orv::tee::impl {

namespace {

using orv::sec::crypto::common::ByteVector;
using orv::sec::crypto::common::CryptoResultCode;
using orv::sec::crypto::common::IKeyID;
using orv::sec::crypto::store::CsrFormat;
using orv::sec::crypto::store::ICryptoStore;
using orv::sec::crypto::store::KeyType;
using qel_logging::QELLogging;
using vintrel::FailureLevel;
using vintrel::FindOrCreateTrustStore;
using vintrel::LogFailure;
using vintrel::RequireObject;
using vintrel::TakeObject;
using vintrel::TakeValue;

constexpr const char* kMakeKeyIdFailed = ": makeKeyId failed: ";
constexpr const char* kMakeKeyIdNull = ": makeKeyId returned null";

void LogError(const char* operation, const char* text) {
    QELLogging::LogError(operation, text);
}

// A failure stays one when the library gives the code 0 with it, or a null object in a success.
MockTeeError FailureOf(CryptoResultCode code) {
    return code == CryptoResultCode::kSuccess
               ? MockTeeError::kFailure
               : ClientCertInitializerAPIImpl::CryptoResultCodeToMockTeeError(code);
}

std::string PlainStringOrEmpty(const std::optional<ByteVector>& bytes) {
    return bytes ? vintrel::ToPlainString(*bytes) : std::string();
}

std::vector<std::uint8_t> PlainVectorOrEmpty(const std::optional<ByteVector>& bytes) {
    return bytes ? vintrel::ToPlainVector(*bytes) : std::vector<std::uint8_t>();
}

struct KeyHandle {
    std::shared_ptr<const IKeyID> mHandle;
    /// Why there is no handle; without meaning beside one.
    MockTeeError mError;
};

/// A handle for `id`, or none after a logged failure.
KeyHandle MakeKeyHandle(ICryptoStore& store, const std::string& id, const char* operation,
                        const char* failedText, const char* nullText) {
    auto result = store.makeKeyId(id);
    const MockTeeError error = FailureOf(result.GetCode());
    return {TakeObject(std::move(result), operation, failedText, nullText), error};
}

}  // namespace

std::shared_ptr<ClientCertInitializerAPI> ClientCertInitializerAPIImpl::get_instance() {
    // Constructed after the holder of the library, and so destroyed before it.
    static const std::shared_ptr<ClientCertInitializerAPI> instance =
        std::make_shared<ClientCertInitializerAPIImpl>();
    return instance;
}

MockTeeError ClientCertInitializerAPIImpl::CryptoResultCodeToMockTeeError(CryptoResultCode code) {
    switch (static_cast<std::uint8_t>(code)) {
        case 0:
            return MockTeeError::kSuccess;
        case 3:
        case 6:
        case 7:
        case 9:
        case 10:
        case 14:
            return MockTeeError::kInvalidCall;
        case 4:
            return MockTeeError::kNotFound;
        default:
            return MockTeeError::kFailure;
    }
}

ClientCertInitializerAPIImpl::ClientCertInitializerAPIImpl() {
    try {
        Init();
    } catch (...) {
        Deinit();
        throw;
    }
}

ClientCertInitializerAPIImpl::~ClientCertInitializerAPIImpl() {
    Deinit();
}

void ClientCertInitializerAPIImpl::Init() {
    mCryptoLib = vintrel::CryptoApiInstance::GetCryptoApiInstance();
    if (!mCryptoLib) {
        throw std::runtime_error("mCryptoLib is null");
    }
    const auto manager =
        RequireObject(mCryptoLib->createTrustStoreManager(), "Failed to create TrustStoreManager",
                      "TrustStoreManager is null");
    mClientCertStore = RequireObject(FindOrCreateTrustStore(*manager, vintrel::kKeyIdTiv),
                                     "Failed to create ClientCertStore", "ClientCertStore is null");
    mKoruStore =
        RequireObject(manager->lookupForKORUStore(), "KORUStore not found", "KORUStore is null");
    QELLogging::LogInfo("ClientCertInitializerAPIImpl initialized succesfully.");
}

void ClientCertInitializerAPIImpl::Deinit() {
    mKoruStore.reset();
    mClientCertStore.reset();
    mCryptoLib.reset();
}

MockTeeError ClientCertInitializerAPIImpl::generate_private_key(std::string certId) {
    constexpr const char* kOperation = "generate_private_key";
    if (certId.empty()) {
        LogError(kOperation, ": invalid certId");
        return MockTeeError::kNotFound;
    }
    const KeyHandle key = MakeKeyHandle(*mClientCertStore, certId, kOperation, kMakeKeyIdFailed,
                                        ": keyHandle is null");
    if (!key.mHandle) {
        return key.mError;
    }
    if (mClientCertStore->checkKeyId(key.mHandle) == 0) {
        QELLogging::LogInfo(kOperation, ": key ID already exists, deleting");
        const CryptoResultCode deleted = mClientCertStore->deleteKeyPair(key.mHandle);
        if (deleted != CryptoResultCode::kSuccess) {
            LogFailure(kOperation, ": failed to delete existing keypair: ", deleted,
                       FailureLevel::kInfo);
        }
    }
    return CryptoResultCodeToMockTeeError(
        mClientCertStore->generateKeyPair(key.mHandle, KeyType::kEcP256));
}

std::vector<std::uint8_t> ClientCertInitializerAPIImpl::generate_csr(std::string subject,
                                                                     std::string certId) {
    constexpr const char* kOperation = "generate_csr";
    if (certId != vintrel::kKeyIdTivCsr) {
        LogError(kOperation, ": invalid certId");
        return {};
    }
    const KeyHandle key =
        MakeKeyHandle(*mClientCertStore, certId, kOperation, kMakeKeyIdFailed, kMakeKeyIdNull);
    if (!key.mHandle) {
        return {};
    }
    return PlainVectorOrEmpty(
        TakeValue(mClientCertStore->generateCsr(subject, CsrFormat::kPkcs10, key.mHandle),
                  kOperation, ": failed to generate CSR: "));
}

std::vector<std::uint8_t> ClientCertInitializerAPIImpl::generate_signature(
    std::string certId, std::vector<std::uint8_t> content, std::string /*algorithm*/) {
    constexpr const char* kOperation = "generate_signature";
    if (content.empty()) {
        LogError(kOperation, ": Content is empty");
        return {};
    }
    if (certId != vintrel::kKeyIdTiv) {
        QELLogging::LogError(kOperation, ": invalid certId: '", certId, "'");
        return {};
    }
    const KeyHandle key =
        MakeKeyHandle(*mClientCertStore, certId, kOperation, kMakeKeyIdFailed, kMakeKeyIdNull);
    if (!key.mHandle) {
        return {};
    }
    const auto signer = TakeObject(
        mCryptoLib->createDigitalSignature(
            {orv::sec::crypto::operation::SignatureAlgorithm::kEcdsaSha256, key.mHandle}),
        kOperation, ": createDigitalSignature failed: ", ": createDigitalSignature returned null");
    if (!signer) {
        return {};
    }
    return PlainVectorOrEmpty(
        TakeValue(signer->sign(vintrel::ToLibraryBytes(content)), kOperation, ": sign failed: "));
}

std::string ClientCertInitializerAPIImpl::get_public_key(std::string certId) {
    constexpr const char* kOperation = "get_public_key";
    if (certId != vintrel::kKeyIdTivCsr && certId != vintrel::kKeyIdTiv) {
        QELLogging::LogError(kOperation, ": invalid certId: ", certId);
        return {};
    }
    const KeyHandle key =
        MakeKeyHandle(*mClientCertStore, certId, kOperation, kMakeKeyIdFailed, kMakeKeyIdNull);
    if (!key.mHandle) {
        return {};
    }
    return PlainStringOrEmpty(TakeValue(mClientCertStore->loadPublicKey(key.mHandle), kOperation,
                                        ": loadPublicKey failed: "));
}

std::string ClientCertInitializerAPIImpl::get_client_cert(std::string certId) {
    constexpr const char* kOperation = "get_client_cert";
    ICryptoStore* store = nullptr;
    const char* keyId = nullptr;
    if (certId == vintrel::kCertIdBase) {
        store = mKoruStore.get();
        keyId = vintrel::kKoruCertIdEcuBase;
    } else if (certId == vintrel::kCertIdTiv) {
        store = mClientCertStore.get();
        keyId = vintrel::kCertIdTiv;
    } else {
        QELLogging::LogError(kOperation, ": invalid certId: '", certId, "'");
        return {};
    }
    const KeyHandle key =
        MakeKeyHandle(*store, keyId, kOperation, kMakeKeyIdFailed, kMakeKeyIdNull);
    if (!key.mHandle) {
        return {};
    }
    return PlainStringOrEmpty(TakeValue(store->loadCertificateForKeyPair(key.mHandle), kOperation,
                                        ": loadCertificateForKeyPair failed: "));
}

MockTeeError ClientCertInitializerAPIImpl::set_client_cert_and_move_key(
    std::string certificateChain, std::string srcKeyId, std::string destKeyId) {
    if (certificateChain.empty()) {
        return ClearClientCertStore(destKeyId);
    }
    return InstallCertificate(certificateChain, srcKeyId, destKeyId);
}

std::string ClientCertInitializerAPIImpl::get_root_cert_bundle(std::string trustStoreId) {
    constexpr const char* kOperation = "get_root_cert_bundle";
    if (trustStoreId != vintrel::kTrustStoreIdKoru) {
        QELLogging::LogError(kOperation, ": invalid trustStoreId: '", trustStoreId, "'");
        return {};
    }
    const auto handle =
        TakeObject(mKoruStore->makeCertId(vintrel::kKoruCertIdProductRoot), kOperation,
                   ": makeCertId failed: ", ": makeCertId returned null");
    if (!handle) {
        return {};
    }
    return PlainStringOrEmpty(
        TakeValue(mKoruStore->loadCertificate(handle), kOperation, ": loadCertificate failed: "));
}

std::string ClientCertInitializerAPIImpl::get_koru_vin() {
    return {};
}

bool ClientCertInitializerAPIImpl::DeleteKeyPair(const std::string& keyId) {
    constexpr const char* kOperation = "DeleteKeyPair";
    const KeyHandle key = MakeKeyHandle(*mClientCertStore, keyId, kOperation, kMakeKeyIdFailed,
                                        ": keyHandle is null");
    if (!key.mHandle) {
        return false;
    }
    const CryptoResultCode deleted = mClientCertStore->deleteKeyPair(key.mHandle);
    if (deleted == CryptoResultCode::kSuccess) {
        return true;
    }
    if (deleted == CryptoResultCode::kNotFound) {
        QELLogging::LogInfo(kOperation, ": no keypair to delete");
        return true;
    }
    LogFailure(kOperation, ": failed to delete keypair: ", deleted, FailureLevel::kInfo);
    return false;
}

MockTeeError ClientCertInitializerAPIImpl::ClearClientCertStore(const std::string& keyId) {
    return DeleteKeyPair(keyId) ? MockTeeError::kSuccess : MockTeeError::kFailure;
}

MockTeeError ClientCertInitializerAPIImpl::InstallCertificate(const std::string& certificateChain,
                                                              const std::string& srcKeyId,
                                                              const std::string& destKeyId) {
    constexpr const char* kOperation = "InstallCertificate";
    if (certificateChain.empty()) {
        LogError(kOperation, ": certificateChain is empty");
        return MockTeeError::kInvalidCall;
    }
    if (srcKeyId.empty()) {
        LogError(kOperation, ": srcKeyId is empty");
        return MockTeeError::kInvalidCall;
    }
    if (destKeyId.empty()) {
        LogError(kOperation, ": destKeyId is empty");
        return MockTeeError::kInvalidCall;
    }
    const KeyHandle source = MakeKeyHandle(
        *mClientCertStore, srcKeyId, kOperation,
        ": makeKeyId for srcKeyId failed: ", ": makeKeyId for srcKeyId returned null");
    if (!source.mHandle) {
        return source.mError;
    }
    const CryptoResultCode stored = mClientCertStore->storeCertificateForKeyPair(
        source.mHandle, vintrel::ToLibraryBytes(certificateChain));
    if (stored != CryptoResultCode::kSuccess) {
        LogFailure(kOperation, ": storeCertificateForKeyPair failed: ", stored);
        return CryptoResultCodeToMockTeeError(stored);
    }
    const KeyHandle destination = MakeKeyHandle(
        *mClientCertStore, destKeyId, kOperation,
        ": makeKeyId for destKeyId failed: ", ": makeKeyId for destKeyId returned null");
    if (!destination.mHandle) {
        return destination.mError;
    }
    // There may be no old pair; where it can't be deleted, the move fails.
    static_cast<void>(mClientCertStore->deleteKeyPair(destination.mHandle));
    return CryptoResultCodeToMockTeeError(
        mClientCertStore->moveKeyPair(source.mHandle, destination.mHandle));
}

}  // namespace orv::tee::impl
