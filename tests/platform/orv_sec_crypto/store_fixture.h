#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <unistd.h>

#include <orv/sec/crypto/crypto_lib.h>

#include "certificate_zoo/certificate_zoo.h"
#include "orv_sec_crypto/store_administration.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace orv::sec::crypto::test {

using common::ByteVector;
using common::CryptoResultCode;
using host::AdministrationStatus;
using host::StoreAdministration;
using testing_support::CaTraits;
using testing_support::CertificateTraits;
using testing_support::Identity;
using testing_support::IssuedBy;
using testing_support::PrivateKeyPem;
using testing_support::SelfSigned;

using KeyHandle = std::shared_ptr<const common::IKeyID>;
using CertHandle = std::shared_ptr<const common::ICertID>;

inline ByteVector ToBytes(const std::string& text) {
    return {text.begin(), text.end()};
}

inline std::string ToText(const ByteVector& bytes) {
    return {bytes.begin(), bytes.end()};
}

/// A store directory of its own for each test, named in the environment, and gone afterwards.
class StoreDirectoryTest : public ::testing::Test {
protected:
    StoreDirectoryTest() { ::setenv("ORV_CRYPTO_DIR", mDirectory.c_str(), 1); }

    ~StoreDirectoryTest() override { cleanupCryptoLib(); }

    std::unique_ptr<StoreAdministration> Provision() {
        std::unique_ptr<StoreAdministration> administration;
        const auto result = StoreAdministration::CreateOrOpen(mDirectory, administration);
        EXPECT_TRUE(result) << result.message;
        return administration;
    }

    std::string Path(const std::string& name) const { return mDirectory + "/" + name; }

    void WriteFile(const std::string& name, const ByteVector& contents) const {
        std::ofstream(Path(name), std::ios::binary) << ToText(contents);
    }

    std::string ReadFile(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    /// What the library logged at error level.
    std::vector<std::string> Errors() const { return mLog.Lines('E'); }

    testing_support::CapturedLog mLog;
    testing_support::TemporaryDirectory mTemporary;
    const std::string mDirectory = mTemporary.Path().string();
};

/// The library open on a provisioned store, with the trust store "TIV".
class OpenLibraryTest : public StoreDirectoryTest {
protected:
    void SetUp() override {
        ASSERT_NE(Provision(), nullptr);
        Open();
    }

    void Open() {
        mProvider = initCryptoLib().GetObject();
        ASSERT_NE(mProvider, nullptr);
        mManager = mProvider->createTrustStoreManager().GetObject();
        mStore = mManager->lookupTrustStore("TIV").GetObject();
        if (mStore == nullptr) {
            mStore = mManager->createTrustStore("TIV").GetObject();
        }
        ASSERT_NE(mStore, nullptr);
    }

    void Reopen() {
        cleanupCryptoLib();
        Open();
    }

    KeyHandle Key(const std::string& id) { return mStore->makeKeyId(id).GetObject(); }
    CertHandle Cert(const std::string& id) { return mStore->makeCertId(id).GetObject(); }

    KeyHandle GeneratedKey(const std::string& id) {
        EXPECT_EQ(mStore->generateKeyPair(Key(id), store::KeyType::kEcP256),
                  CryptoResultCode::kSuccess);
        return Key(id);
    }

    /// A certificate over a key of the store, whose private half the test never sees.
    Identity CertificateFor(const KeyHandle& key) {
        CertificateTraits traits;
        traits.key = testing_support::ReadPublicKey(mStore->loadPublicKey(key).GetObject());
        return IssuedBy(SelfSigned(CaTraits("CA")), traits);
    }

    std::shared_ptr<operation::IDigitalSignature> Signature(const KeyHandle& key) {
        return mProvider->createDigitalSignature({operation::SignatureAlgorithm::kEcdsaSha256, key})
            .GetObject();
    }

    std::shared_ptr<ICryptoServiceProvider> mProvider;
    std::shared_ptr<operation::ITrustStoreManager> mManager;
    std::shared_ptr<store::ITrustStore> mStore;
};

}  // namespace orv::sec::crypto::test
