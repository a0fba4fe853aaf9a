#include "certificates/client_cert_initializer_api_impl.h"

#include <stdexcept>
#include <utility>

#include <orv/sec/crypto/common/crypto_allocator.h>
#include <orv/sec/crypto/common/i_cert_id.h>
#include <orv/sec/crypto/common/i_key_id.h>
#include <orv/sec/crypto/operation/i_digital_signature.h>
#include <orv/sec/crypto/store/i_crypto_store.h>

#include "certificates/certificate_ids.h"
#include "certificates/crypto_api_instance.h"
#include "certificates/library_values.h"
#include "logging/qel_log_entry.h"
#include "logging/qel_logging.h"

namespace orv::tee::impl {

namespace {

using orv::sec::crypto::common::CryptoResultCode;
using orv::sec::crypto::common::IKeyID;
using orv::sec::crypto::store::CsrFormat;
using orv::sec::crypto::store::ICryptoStore;
using orv::sec::crypto::store::KeyType;
using qel_logging::QELLogging;
using vintrel::CodeText;

constexpr const char* kMakeKeyIdFailed = ": makeKeyId failed: ";
constexpr const char* kMakeKeyIdNull = ": makeKeyId returned null";

void LogError(const char* operation, const char* text) {
    QELLogging::LogError(operation, text);
}

void LogError(const char* operation, const char* text, CryptoResultCode code) {
    QELLogging::LogError(operation, text, CodeText(code));
}

void LogInfo(const char* operation, const char* text, CryptoResultCode code) {
    QELLogging::LogInfo(operation, text, CodeText(code));
}

struct KeyHandle {
    std::shared_ptr<const IKeyID> mHandle;
    /// Why there is no handle.
    MockTeeError mError = MockTeeError::kSuccess;
};

/// A handle for `id`, or none after a logged failure.
KeyHandle MakeKeyHandle(ICryptoStore& store, const std::string& id, const char* operation,
                        const char* failedText, const char* nullText) {
    auto result = store.makeKeyId(id);
    if (!result.IsSuccess()) {
        const CryptoResultCode code = result.GetCode();
        LogError(operation, failedText, code);
        // A failure stays one when the library gives the code 0 with it.
        return {nullptr, code == CryptoResultCode::kSuccess
                             ? MockTeeError::kFailure
                             : ClientCertInitializerAPIImpl::CryptoResultCodeToMockTeeError(code)};
    }
    auto handle = std::move(result).GetObject();
    if (!handle) {
        LogError(operation, nullText);
        return {nullptr, MockTeeError::kFailure};
    }
    return {std::move(handle), MockTeeError::kSuccess};
}

}  // namespace

std::shared_ptr<ClientCertInitializerAPI> ClientCertInitializerAPIImpl::get_instance() {
    // Complete only after the holder of the library, and so released before the clean-up.
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
    Init();
}

ClientCertInitializerAPIImpl::~ClientCertInitializerAPIImpl() {
    Deinit();
}

void ClientCertInitializerAPIImpl::Init() {
    mCryptoLib = vintrel::CryptoApiInstance::GetCryptoApiInstance();
    if (!mCryptoLib) {
        FailInit("mCryptoLib is null");
    }
    auto managerResult = mCryptoLib->createTrustStoreManager();
    if (!managerResult.IsSuccess()) {
        FailInit("Failed to create TrustStoreManager");
    }
    const auto manager = std::move(managerResult).GetObject();
    if (!manager) {
        FailInit("TrustStoreManager is null");
    }
    auto storeResult = manager->lookupTrustStore(vintrel::kKeyIdTiv);
    if (!storeResult.IsSuccess()) {
        storeResult = manager->createTrustStore(vintrel::kKeyIdTiv);
        if (!storeResult.IsSuccess()) {
            FailInit("Failed to create ClientCertStore");
        }
    }
    mClientCertStore = std::move(storeResult).GetObject();
    if (!mClientCertStore) {
        FailInit("ClientCertStore is null");
    }
    auto koruResult = manager->lookupForKORUStore();
    if (!koruResult.IsSuccess()) {
        FailInit("KORUStore not found");
    }
    mKoruStore = std::move(koruResult).GetObject();
    if (!mKoruStore) {
        FailInit("KORUStore is null");
    }
    QELLogging::LogInfo("ClientCertInitializerAPIImpl initialized succesfully.");
}

void ClientCertInitializerAPIImpl::Deinit() {
    mKoruStore.reset();
    mClientCertStore.reset();
    mCryptoLib.reset();
}

void ClientCertInitializerAPIImpl::FailInit(const char* text) {
    Deinit();
    throw std::runtime_error(text);
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
            LogInfo(kOperation, ": failed to delete existing keypair: ", deleted);
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
    const auto result = mClientCertStore->generateCsr(subject, CsrFormat::kPkcs10, key.mHandle);
    if (!result.IsSuccess()) {
        LogError(kOperation, ": failed to generate CSR: ", result.GetCode());
        return {};
    }
    return vintrel::ToPlainVector(result.GetObject());
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
    auto signerResult = mCryptoLib->createDigitalSignature(
        {orv::sec::crypto::operation::SignatureAlgorithm::kEcdsaSha256, key.mHandle});
    if (!signerResult.IsSuccess()) {
        LogError(kOperation, ": createDigitalSignature failed: ", signerResult.GetCode());
        return {};
    }
    const auto signer = std::move(signerResult).GetObject();
    if (!signer) {
        LogError(kOperation, ": createDigitalSignature returned null");
        return {};
    }
    const auto signature = signer->sign(vintrel::ToLibraryBytes(content));
    if (!signature.IsSuccess()) {
        LogError(kOperation, ": sign failed: ", signature.GetCode());
        return {};
    }
    return vintrel::ToPlainVector(signature.GetObject());
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
    const auto publicKey = mClientCertStore->loadPublicKey(key.mHandle);
    if (!publicKey.IsSuccess()) {
        LogError(kOperation, ": loadPublicKey failed: ", publicKey.GetCode());
        return {};
    }
    return vintrel::ToPlainString(publicKey.GetObject());
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
    const auto chain = store->loadCertificateForKeyPair(key.mHandle);
    if (!chain.IsSuccess()) {
        LogError(kOperation, ": loadCertificateForKeyPair failed: ", chain.GetCode());
        return {};
    }
    return vintrel::ToPlainString(chain.GetObject());
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
    auto handleResult = mKoruStore->makeCertId(vintrel::kKoruCertIdProductRoot);
    if (!handleResult.IsSuccess()) {
        LogError(kOperation, ": makeCertId failed: ", handleResult.GetCode());
        return {};
    }
    const auto handle = std::move(handleResult).GetObject();
    if (!handle) {
        LogError(kOperation, ": makeCertId returned null");
        return {};
    }
    const auto root = mKoruStore->loadCertificate(handle);
    if (!root.IsSuccess()) {
        LogError(kOperation, ": loadCertificate failed: ", root.GetCode());
        return {};
    }
    return vintrel::ToPlainString(root.GetObject());
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
    LogInfo(kOperation, ": failed to delete keypair: ", deleted);
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
        LogError(kOperation, ": storeCertificateForKeyPair failed: ", stored);
        return CryptoResultCodeToMockTeeError(stored);
    }
    const KeyHandle destination = MakeKeyHandle(
        *mClientCertStore, destKeyId, kOperation,
        ": makeKeyId for destKeyId failed: ", ": makeKeyId for destKeyId returned null");
    if (!destination.mHandle) {
        return destination.mError;
    }
    // There may be no old pair; where it can't be deleted, the move tells.
    static_cast<void>(mClientCertStore->deleteKeyPair(destination.mHandle));
    return CryptoResultCodeToMockTeeError(
        mClientCertStore->moveKeyPair(source.mHandle, destination.mHandle));
}

}  // namespace orv::tee::impl
