#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <orv/sec/crypto/crypto_lib.h>
#include <orv/sec/tive/factories/signed_container_factory.h>

#include "certificate_zoo/certificate_zoo.h"
#include "orv_sec_crypto/store_administration.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace orv::sec::tive {

namespace {

using crypto::common::ByteVector;
using crypto::host::StoreAdministration;
using factories::SignedContainerFactory;
using ::testing::HasSubstr;
using ::testing::Not;
using testing_support::Family;

using KeyHandle = std::shared_ptr<const crypto::common::IKeyID>;

constexpr const char* kBaseKey = "ECU_BASE_CERT";

std::vector<std::uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

/// The library on a provisioned store; what comes out is judged by the openssl program.
class SignedContainerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("ORV_CRYPTO_DIR", mDirectory.File("store").c_str(), 1);
        ASSERT_TRUE(StoreAdministration::CreateOrOpen(mDirectory.File("store"), mAdministration));
        Provision(testing_support::PemOf({mFactory.leaf, mFactory.intermediate, mFactory.root}));
        mProvider = crypto::initCryptoLib().GetObject();
        ASSERT_NE(mProvider, nullptr);
        const auto manager = mProvider->createTrustStoreManager().GetObject();
        mKoruStore = manager->lookupForKORUStore().GetObject();
        mTrustStore = manager->createTrustStore("TIV").GetObject();
        ASSERT_NE(mTrustStore, nullptr);
        Write("root.pem", mFactory.root.Pem());
    }

    ~SignedContainerTest() override { crypto::cleanupCryptoLib(); }

    void Provision(const std::string& chain) {
        const auto result = mAdministration->ImportKeyPair(
            kBaseKey, testing_support::PrivateKeyPem(mFactory.leaf.key), chain);
        ASSERT_TRUE(result) << result.message;
    }

    auto Encoder(const KeyHandle& key, bool includeRoot = false,
                 SignatureAlgorithmType algorithm = SignatureAlgorithmType::kEcdsaSha256) {
        return SignedContainerFactory(mProvider, mKoruStore, mTrustStore)
            .CreateCertificateChainEncoder(algorithm, key, includeRoot);
    }

    KeyHandle BaseKey() { return mKoruStore->makeKeyId(kBaseKey).GetObject(); }

    std::string Container(const std::string& payload, const AuxiliaryData& auxiliaryData = {}) {
        const auto encoder = Encoder(BaseKey()).GetObject();
        return encoder == nullptr ? "" : encoder->encode(Bytes(payload), auxiliaryData).GetObject();
    }

    void Write(const std::string& name, const std::string& text) {
        std::ofstream(mDirectory.File(name), std::ios::binary) << text;
    }

    /// Whether the openssl program succeeds; its output is in the file "output".
    bool OpenSsl(const std::string& arguments) {
        const std::string command = "cd " + mDirectory.Path().string() + " && openssl " +
                                    arguments + " >output 2>errors </dev/null";
        return std::system(command.c_str()) == 0;
    }

    bool Verify(const std::string& container) {
        Write("container.pem", container);
        return OpenSsl("cms -verify -binary -inform PEM -in container.pem -CAfile root.pem");
    }

    std::string Output() {
        std::ifstream file(mDirectory.File("output"), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::string Structure(const std::string& container) {
        Write("container.pem", container);
        EXPECT_TRUE(OpenSsl("cms -cmsout -print -noout -inform PEM -in container.pem"));
        return Output();
    }

    testing_support::CapturedLog mLog;
    testing_support::TemporaryDirectory mDirectory;
    Family mFactory;
    std::unique_ptr<StoreAdministration> mAdministration;
    std::shared_ptr<crypto::ICryptoServiceProvider> mProvider;
    std::shared_ptr<crypto::store::IKORUStore> mKoruStore;
    std::shared_ptr<crypto::store::ITrustStore> mTrustStore;
};

TEST_F(SignedContainerTest, AnyPayloadComesOutAsItWentIn) {
    using namespace std::string_literals;
    const std::string binary = "\0line\r\nline\nno translation\x1a\xff\r"s;
    for (const std::string& payload : {binary, std::string(), std::string(100000, 'x')}) {
        const std::string container = Container(payload);
        EXPECT_EQ(container.find("-----BEGIN CMS-----\n"), 0U);
        EXPECT_TRUE(Verify(container));
        EXPECT_EQ(Output(), payload);
    }
}

TEST_F(SignedContainerTest, TamperedContainersAndForeignRootsAreRefused) {
    const std::string container = Container("the request of this unit");
    Write("container.pem", container);
    ASSERT_TRUE(OpenSsl("cms -cmsout -outform DER -inform PEM -in container.pem -out der"));
    std::ifstream file(mDirectory.File("der"), std::ios::binary);
    std::string der{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const auto position = der.find("this unit");
    ASSERT_NE(position, std::string::npos);
    der[position] = 'T';
    Write("der", der);
    EXPECT_FALSE(OpenSsl("cms -verify -binary -inform DER -in der -CAfile root.pem"));

    Write("root.pem", Family("Other").root.Pem());
    EXPECT_FALSE(Verify(container));
}

TEST_F(SignedContainerTest, TheRootTravelsOnlyWhenAskedFor) {
    const std::string without = Structure(Container("payload"));
    EXPECT_THAT(without, HasSubstr("subject: CN=Factory CA"));
    EXPECT_THAT(without, Not(HasSubstr("subject: CN=Factory Root")));
    EXPECT_THAT(without, HasSubstr("signingTime"));
    EXPECT_THAT(without, HasSubstr("ecdsa-with-SHA256"));

    const auto encoder = Encoder(BaseKey(), true).GetObject();
    ASSERT_NE(encoder, nullptr);
    const auto with = encoder->encode(Bytes("payload"), {});
    EXPECT_THAT(Structure(with.GetObject()), HasSubstr("subject: CN=Factory Root"));

    // Issued by the root's old key to its new one: the same name twice, but no root.
    const auto rollover = IssuedBy(mFactory.root, testing_support::CaTraits("Factory Root"));
    Provision(testing_support::PemOf({mFactory.leaf, mFactory.intermediate, rollover}));
    EXPECT_THAT(Structure(Container("payload")), HasSubstr("subject: CN=Factory Root"));
}

TEST_F(SignedContainerTest, AuxiliaryDataAreUnderTheSignature) {
    const std::string container = Container("payload", {"kind", 300, {1, 2, 3}, "for people"});
    const std::string structure = Structure(container);
    EXPECT_THAT(structure, HasSubstr("2.25.106826358219730466423587016219460152937"));
    EXPECT_THAT(structure, HasSubstr("for people"));
    EXPECT_TRUE(Verify(container));
    EXPECT_THAT(Structure(Container("payload")), Not(HasSubstr("2.25.")));
}

TEST_F(SignedContainerTest, AChainThatIsNotAttachedIsFoundUnderTheKeysId) {
    // A key pair of the trust store, whose certificate was stored beside it.
    const auto key = mTrustStore->makeKeyId("OWN").GetObject();
    ASSERT_EQ(mTrustStore->generateKeyPair(key, crypto::store::KeyType::kEcP256),
              crypto::common::CryptoResultCode::kSuccess);
    const SignedContainerFactory factory(mProvider, mTrustStore, mTrustStore);
    const auto create = [&] {
        return factory.CreateCertificateChainEncoder(SignatureAlgorithmType::kEcdsaSha256, key,
                                                     false);
    };
    EXPECT_EQ(create().GetCode(), TIVEResultCode::kCertificateNotFound);

    const ByteVector der = mTrustStore->loadPublicKey(key).GetObject();
    const unsigned char* position = der.data();
    testing_support::CertificateTraits traits;
    traits.key = {d2i_PUBKEY(nullptr, &position, static_cast<long>(der.size())), EVP_PKEY_free};
    const std::string chain = IssuedBy(mFactory.intermediate, traits).Pem();
    ASSERT_EQ(mTrustStore->storeCertificate(mTrustStore->makeCertId("OWN").GetObject(),
                                            ByteVector(chain.begin(), chain.end())),
              crypto::common::CryptoResultCode::kSuccess);
    const auto encoder = create().GetObject();
    ASSERT_NE(encoder, nullptr);
    EXPECT_TRUE(encoder->encode(Bytes("payload"), {}).IsSuccess());
}

TEST_F(SignedContainerTest, EachFailureHasItsCode) {
    const auto unknown = mKoruStore->makeKeyId("NO_SUCH_KEY").GetObject();
    const auto foreign = mTrustStore->makeKeyId(kBaseKey).GetObject();
    EXPECT_EQ(Encoder(nullptr).GetCode(), TIVEResultCode::kInvalidArgument);
    EXPECT_EQ(Encoder(unknown).GetCode(), TIVEResultCode::kKeyNotFound);
    EXPECT_EQ(Encoder(foreign).GetCode(), TIVEResultCode::kInvalidArgument);
    EXPECT_EQ(Encoder(BaseKey(), false, static_cast<SignatureAlgorithmType>(2)).GetCode(),
              TIVEResultCode::kUnsupportedAlgorithm);
    EXPECT_EQ(
        SignedContainerFactory(mProvider, nullptr, mTrustStore)
            .CreateCertificateChainEncoder(SignatureAlgorithmType::kEcdsaSha256, BaseKey(), false)
            .GetCode(),
        TIVEResultCode::kInvalidArgument);

    const auto encoder = Encoder(BaseKey()).GetObject();
    ASSERT_NE(encoder, nullptr);
    EXPECT_EQ(encoder->encode(std::vector<std::uint8_t>(1024 * 1024 + 1), {}).GetCode(),
              TIVEResultCode::kTooLarge);
    ASSERT_TRUE(mAdministration->Remove("KORU", kBaseKey, crypto::host::EntryKind::kKeyPair));
    EXPECT_EQ(encoder->encode(Bytes("payload"), {}).GetCode(), TIVEResultCode::kKeyNotFound);
}

}  // namespace

}  // namespace orv::sec::tive
