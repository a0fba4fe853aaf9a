#include "certificates/scripted_crypto_library.h"

#include <iostream>
#include <memory>
#include <sstream>
#include <utility>

#include <orv/sec/crypto/crypto_lib.h>
#include <orv/sec/tive/factories/signed_container_factory.h>

namespace testing_support {

namespace {

using orv::sec::crypto::ICryptoServiceProvider;
using orv::sec::crypto::common::ByteVector;
using orv::sec::crypto::common::CryptoResultCode;
using orv::sec::crypto::common::ErrorOrObjectResult;
using orv::sec::crypto::common::ICertID;
using orv::sec::crypto::common::IKeyID;
using orv::sec::tive::AuxiliaryData;
using orv::sec::tive::TIVEResultCode;
namespace operation = orv::sec::crypto::operation;
namespace store = orv::sec::crypto::store;

template <typename Object>
using Result = ErrorOrObjectResult<CryptoResultCode, Object>;

ByteVector Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

template <typename Container>
std::string Text(const Container& bytes) {
    return {bytes.begin(), bytes.end()};
}

/// Failures carry the object as well: nobody may look at it then.
template <typename Object, typename Code = CryptoResultCode>
ErrorOrObjectResult<Code, Object> Answer(const std::string& name, const std::string& arguments,
                                         Object object) {
    const Outcome outcome = ScriptedCryptoLibrary::Get().Enter(name, arguments);
    return {outcome.mFlag, static_cast<Code>(outcome.mCode), "not for programs",
            outcome.mNullObject ? Object{} : std::move(object)};
}

CryptoResultCode AnswerCode(const std::string& name, const std::string& arguments) {
    return static_cast<CryptoResultCode>(ScriptedCryptoLibrary::Get().Enter(name, arguments).mCode);
}

std::string TextOf(const std::string& operation, const std::string& text) {
    const auto& texts = ScriptedCryptoLibrary::Get().mTexts;
    const auto found = texts.find(operation);
    return found == texts.end() ? text : found->second;
}

Result<ByteVector> AnswerBytes(const std::string& name, const std::string& arguments,
                               const std::string& text) {
    return Answer(name, arguments, Bytes(TextOf(name, text)));
}

template <typename Interface>
class Handle : public Interface {
public:
    explicit Handle(std::string id) : mId(std::move(id)) {}
    const std::string& getId() const override { return mId; }

private:
    const std::string mId;
};

template <typename Interface>
class Store : public Interface {
public:
    explicit Store(std::string name) : mName(std::move(name)) {
        ++ScriptedCryptoLibrary::Get().mLiveStores;
    }
    ~Store() override { --ScriptedCryptoLibrary::Get().mLiveStores; }

    Result<std::shared_ptr<const IKeyID>> makeKeyId(const std::string& id) override {
        return Answer<std::shared_ptr<const IKeyID>>("makeKeyId", Path(id),
                                                     std::make_shared<Handle<IKeyID>>(Path(id)));
    }
    Result<std::shared_ptr<const ICertID>> makeCertId(const std::string& id) override {
        return Answer<std::shared_ptr<const ICertID>>("makeCertId", Path(id),
                                                      std::make_shared<Handle<ICertID>>(Path(id)));
    }
    std::uint8_t checkKeyId(const std::shared_ptr<const IKeyID>& key) override {
        const CryptoResultCode code = AnswerCode("checkKeyId", key->getId());
        const bool exists = ScriptedCryptoLibrary::Get().mKeyPairs.count(key->getId()) != 0;
        return static_cast<std::uint8_t>(
            code == CryptoResultCode::kSuccess && !exists ? CryptoResultCode::kNotFound : code);
    }
    Result<ByteVector> loadCertificate(const std::shared_ptr<const ICertID>& cert) override {
        return AnswerBytes("loadCertificate", cert->getId(), "certificate of " + cert->getId());
    }
    Result<ByteVector> loadCertificateForKeyPair(
        const std::shared_ptr<const IKeyID>& key) override {
        return AnswerBytes("loadCertificateForKeyPair", key->getId(), "chain of " + key->getId());
    }
    Result<ByteVector> loadPublicKey(const std::shared_ptr<const IKeyID>& key) override {
        return AnswerBytes("loadPublicKey", key->getId(), "public key of " + key->getId());
    }
    CryptoResultCode storeCertificate(const std::shared_ptr<const ICertID>& cert,
                                      const ByteVector& bytes) override {
        return AnswerCode("storeCertificate", cert->getId() + " " + Text(bytes));
    }
    CryptoResultCode storeCertificateForKeyPair(const std::shared_ptr<const IKeyID>& key,
                                                const ByteVector& bytes) override {
        return AnswerCode("storeCertificateForKeyPair", key->getId() + " " + Text(bytes));
    }
    CryptoResultCode moveKeyPair(std::shared_ptr<const IKeyID> source,
                                 std::shared_ptr<const IKeyID> destination) override {
        return AnswerCode("moveKeyPair", source->getId() + " " + destination->getId());
    }
    Result<ByteVector> generateCsr(const std::string& subject, const store::CsrFormat& format,
                                   const std::shared_ptr<const IKeyID>& key) override {
        const std::string request =
            subject + " " + std::to_string(static_cast<int>(format)) + " " + key->getId();
        return AnswerBytes("generateCsr", request, "request " + request);
    }
    CryptoResultCode generateKeyPair(const std::shared_ptr<const IKeyID>& key,
                                     const store::KeyType& type) override {
        return AnswerCode("generateKeyPair",
                          key->getId() + " " + std::to_string(static_cast<int>(type)));
    }
    CryptoResultCode deleteKeyPair(const std::shared_ptr<const IKeyID>& key) override {
        return AnswerCode("deleteKeyPair", key->getId());
    }

private:
    std::string Path(const std::string& id) const { return mName + "/" + id; }

    const std::string mName;
};

class TrustStoreManager : public operation::ITrustStoreManager {
    Result<std::shared_ptr<store::ITrustStore>> createTrustStore(const std::string& name) override {
        return Answer<std::shared_ptr<store::ITrustStore>>(
            "createTrustStore", name, std::make_shared<Store<store::ITrustStore>>(name));
    }
    Result<std::shared_ptr<store::ITrustStore>> lookupTrustStore(const std::string& name) override {
        return Answer<std::shared_ptr<store::ITrustStore>>(
            "lookupTrustStore", name, std::make_shared<Store<store::ITrustStore>>(name));
    }
    Result<std::shared_ptr<store::IKORUStore>> lookupForKORUStore() override {
        return Answer<std::shared_ptr<store::IKORUStore>>(
            "lookupForKORUStore", "", std::make_shared<Store<store::IKORUStore>>("KORU"));
    }
};

class CertificateHandler : public operation::ICertificateHandler {
    CryptoResultCode verifyCertificate(const ByteVector& certificate,
                                       const ByteVector& issuer) override {
        return AnswerCode("verifyCertificate", Text(certificate) + " by " + Text(issuer));
    }
    Result<std::vector<ByteVector>> splitCertificatesChain(const ByteVector& bytes) override {
        std::vector<ByteVector> certificates;
        std::istringstream chain(Text(bytes));
        for (std::string certificate; std::getline(chain, certificate, ',');) {
            certificates.push_back(Bytes(certificate));
        }
        return Answer("splitCertificatesChain", "", std::move(certificates));
    }
    Result<ByteVector> pemToDer(const ByteVector& bytes,
                                const operation::PemFormat& format) override {
        return AnswerBytes("pemToDer", std::to_string(static_cast<int>(format)),
                           "DER of " + Text(bytes));
    }
    Result<std::string> getCertificateIssuerCommonName(const ByteVector& bytes) override {
        return Answer("getCertificateIssuerCommonName", "",
                      TextOf("getCertificateIssuerCommonName", "name in " + Text(bytes)));
    }
    Result<std::int64_t> getCertificateNotBeforeDate(const ByteVector&) override {
        return Answer("getCertificateNotBeforeDate", "", ScriptedCryptoLibrary::Get().mNotBefore);
    }
    Result<std::int64_t> getCertificateNotAfterDate(const ByteVector&) override {
        return Answer("getCertificateNotAfterDate", "", ScriptedCryptoLibrary::Get().mNotAfter);
    }
};

class DigitalSignature : public operation::IDigitalSignature {
public:
    explicit DigitalSignature(std::string keyId) : mKeyId(std::move(keyId)) {}

private:
    Result<ByteVector> sign(const ByteVector& content) override {
        return AnswerBytes("sign", Text(content), Text(content) + " signed by " + mKeyId);
    }
    CryptoResultCode verify(const ByteVector& signature, const ByteVector& content) override {
        const CryptoResultCode code =
            AnswerCode("verify", Text(signature) + " over " + Text(content) + " by " + mKeyId);
        return code == CryptoResultCode::kSuccess && signature.empty()
                   ? CryptoResultCode::kVerificationFailed
                   : code;
    }

    const std::string mKeyId;
};

class Provider : public ICryptoServiceProvider {
    Result<std::shared_ptr<operation::IDigitalSignature>> createDigitalSignature(
        const operation::DigitalSignatureParams& params) override {
        return Answer<std::shared_ptr<operation::IDigitalSignature>>(
            "createDigitalSignature", std::to_string(static_cast<int>(params.algorithm)),
            std::make_shared<DigitalSignature>(params.keyId->getId()));
    }
    Result<std::shared_ptr<operation::ITrustStoreManager>> createTrustStoreManager() override {
        return Answer<std::shared_ptr<operation::ITrustStoreManager>>(
            "createTrustStoreManager", "", std::make_shared<TrustStoreManager>());
    }
    Result<std::shared_ptr<operation::ICertificateHandler>> createCertificateHandler() override {
        return Answer<std::shared_ptr<operation::ICertificateHandler>>(
            "createCertificateHandler", "", std::make_shared<CertificateHandler>());
    }
};

class Encoder : public orv::sec::tive::processors::IAuxiliaryDataStapledEncoder {
    ErrorOrObjectResult<TIVEResultCode, std::string> encode(
        const std::vector<std::uint8_t>& payload, const AuxiliaryData& auxiliary) override {
        return Answer<std::string, TIVEResultCode>(
            "encode",
            Text(payload) + "|" + auxiliary.type + "|" + std::to_string(auxiliary.version) + "|" +
                Text(auxiliary.data) + "|" + auxiliary.description,
            "container");
    }
};

}  // namespace

ScriptedCryptoLibrary& ScriptedCryptoLibrary::Get() {
    // Never destroyed: the libraries are called until the very end of the process.
    static auto* const library = new ScriptedCryptoLibrary();
    return *library;
}

void ScriptedCryptoLibrary::Reset() {
    const int liveStores = mLiveStores;
    *this = ScriptedCryptoLibrary();
    mLiveStores = liveStores;
}

void ScriptedCryptoLibrary::Script(const std::string& operation, Outcome outcome, int call) {
    mScripts[operation][call] = outcome;
}

void ScriptedCryptoLibrary::FailCall(std::size_t call, Outcome outcome,
                                     std::function<void()> reached) {
    mFailingCall = call;
    mFailure = outcome;
    mReached = std::move(reached);
}

Outcome ScriptedCryptoLibrary::Enter(const std::string& operation, const std::string& arguments) {
    mCalls.push_back(arguments.empty() ? operation : operation + " " + arguments);
    const int call = ++mCounts[operation];
    if (mCalls.size() == mFailingCall) {
        mReached();
        return mFailure;
    }
    const std::map<int, Outcome>& script = mScripts[operation];
    for (const int number : {call, 0}) {
        const auto scripted = script.find(number);
        if (scripted != script.end()) {
            return scripted->second;
        }
    }
    return {};
}

int ScriptedCryptoLibrary::Count(const std::string& operation) const {
    const auto count = mCounts.find(operation);
    return count == mCounts.end() ? 0 : count->second;
}

}  // namespace testing_support

namespace orv::sec::crypto {

using testing_support::ScriptedCryptoLibrary;

common::ErrorOrObjectResult<common::CryptoResultCode, std::shared_ptr<ICryptoServiceProvider>>
initCryptoLib() {
    if (ScriptedCryptoLibrary::Get().mTrace) {
        std::cerr << "init;" << std::flush;
    }
    return testing_support::Answer<std::shared_ptr<ICryptoServiceProvider>>(
        "initCryptoLib", "", std::make_shared<testing_support::Provider>());
}

common::CryptoResultCode cleanupCryptoLib() {
    if (ScriptedCryptoLibrary::Get().mTrace) {
        std::cerr << "cleanup with " << ScriptedCryptoLibrary::Get().mLiveStores << " stores held;"
                  << std::flush;
    }
    return testing_support::AnswerCode("cleanupCryptoLib", "");
}

}  // namespace orv::sec::crypto

namespace orv::sec::tive::factories {

SignedContainerFactory::SignedContainerFactory(
    const std::shared_ptr<crypto::ICryptoServiceProvider>& cryptoServiceProvider,
    const std::shared_ptr<crypto::store::ICryptoStore>& cryptoStore,
    const std::shared_ptr<crypto::store::ITrustStore>& trustStore)
    : mCryptoServiceProvider(cryptoServiceProvider),
      mCryptoStore(cryptoStore),
      mTrustStore(trustStore) {}

crypto::common::ErrorOrObjectResult<TIVEResultCode,
                                    std::shared_ptr<processors::IAuxiliaryDataStapledEncoder>>
SignedContainerFactory::CreateCertificateChainEncoder(
    SignatureAlgorithmType algorithm, const std::shared_ptr<const crypto::common::IKeyID>& keyId,
    bool includeRoot) const {
    return testing_support::Answer<std::shared_ptr<processors::IAuxiliaryDataStapledEncoder>,
                                   TIVEResultCode>("CreateCertificateChainEncoder",
                                                   std::to_string(static_cast<int>(algorithm)) +
                                                       " " + keyId->getId() + " " +
                                                       (includeRoot ? "true" : "false"),
                                                   std::make_shared<testing_support::Encoder>());
}

}  // namespace orv::sec::tive::factories
