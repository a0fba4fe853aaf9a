#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <openssl/x509.h>

#include <orv/sec/crypto/crypto_lib.h>
#include <orv/sec/tive/factories/signed_container_factory.h>

#include "certificate_zoo/certificate_zoo.h"
#include "client_store/client_store.h"
#include "key_hardware/key_hardware.h"
#include "orv_sec_crypto/store_administration.h"
#include "simulator/backend/container.h"
#include "simulator/backend/refusal.h"
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

/// The library on a provisioned store; what comes out is opened as a backend opens it.
class SignedContainerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("ORV_CRYPTO_DIR", mDirectory.File("store").c_str(), 1);
        ASSERT_TRUE(StoreAdministration::CreateOrOpen(mDirectory.File("store"), Storage(),
                                                      mAdministration));
        ProvisionAndOpen(
            testing_support::PemOf({mFactory.leaf, mFactory.intermediate, mFactory.root}));
    }

    ~SignedContainerTest() override { crypto::cleanupCryptoLib(); }

    virtual crypto::host::KeyStorage Storage() { return crypto::host::FileKeyStorage{}; }

    /// Nobody else writes to a store that the library has open.
    void ProvisionAndOpen(const std::string& chain) {
        crypto::cleanupCryptoLib();
        const auto result = mAdministration->ImportKeyPair(
            kBaseKey, testing_support::PrivateKeyPem(mFactory.leaf.key), chain);
        ASSERT_TRUE(result) << result.message;
        mProvider = crypto::initCryptoLib().GetObject();
        ASSERT_NE(mProvider, nullptr);
        mKoruStore =
            mProvider->createTrustStoreManager().GetObject()->lookupForKORUStore().GetObject();
        mTrustStore = testing_support::ClientStore(*mProvider, mFactory).mStore;
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

    /// Whether the backend accepts it. Then its content must be the payload and its signer the
    /// factory's leaf.
    bool Accepts(const std::string& container, const std::string& payload = "payload") {
        try {
            const auto opened = simulator::backend::OpenContainer(
                container, *mFactory.root.certificate, std::chrono::system_clock::now());
            EXPECT_EQ(opened.payload, payload);
            EXPECT_EQ(X509_cmp(opened.signer.get(), mFactory.leaf.certificate.get()), 0);
            return true;
        } catch (const simulator::backend::Refusal&) {
            return false;
        }
    }

    /// As the openssl program prints it.
    std::string Structure(const std::string& container) {
        mDirectory.Write("container.pem", container);
        const std::string command = "cd " + mDirectory.Path().string() +
                                    " && openssl cms -cmsout -print -noout -inform PEM "
                                    "-in container.pem >output";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return mDirectory.Read("output");
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
    const auto key = mTrustStore->makeKeyId("TIV_CSR").GetObject();
    ASSERT_EQ(mTrustStore->generateKeyPair(key, crypto::store::KeyType::kEcP256),
              crypto::common::CryptoResultCode::kSuccess);
    const ByteVector csr =
        mTrustStore->generateCsr("VIN:C003", crypto::store::CsrFormat::kPkcs10, key).GetObject();
    ASSERT_FALSE(csr.empty());
    for (const std::string& payload :
         {std::string(csr.begin(), csr.end()), binary, std::string(), std::string(100000, 'x')}) {
        EXPECT_TRUE(Accepts(Container(payload), payload));
    }
}

/// The same with the keys in a token.
class TokenContainerTest : public SignedContainerTest {
protected:
    crypto::host::KeyStorage Storage() override { return mToken.Storage(); }

    const crypto::test::SoftwareToken mToken{mDirectory.File("pin")};
};

TEST_F(TokenContainerTest, ABaseKeyInATokenSigns) {
    EXPECT_TRUE(Accepts(Container("payload")));
}

TEST_F(SignedContainerTest, ATamperedByteIsRefusedOrChangesNeitherContentNorSigner) {
    const std::string container = Container("payload");
    std::size_t accepted = 0;
    for (std::size_t position = 0; position < container.size(); ++position) {
        for (const char other : {'A', '/'}) {
            SCOPED_TRACE(position);
            std::string tampered = container;
            tampered[position] = other;
            accepted += tampered != container && Accepts(tampered) ? 1 : 0;
        }
    }
    // What no signature covers, as versions and names of algorithms, or the case of a name.
    EXPECT_LT(accepted, container.size() / 10);
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
    ProvisionAndOpen(testing_support::PemOf({mFactory.leaf, mFactory.intermediate, rollover}));
    EXPECT_THAT(Structure(Container("payload")), HasSubstr("subject: CN=Factory Root"));
}

TEST_F(SignedContainerTest, AuxiliaryDataAreUnderTheSignature) {
    const std::string container = Container("payload", {"kind", 300, {1, 2, 3}, "for people"});
    const std::string structure = Structure(container);
    EXPECT_THAT(structure, HasSubstr("2.25.106826358219730466423587016219460152937"));
    EXPECT_THAT(structure, HasSubstr("for people"));
    EXPECT_TRUE(Accepts(container));
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

    testing_support::CertificateTraits traits;
    traits.key = testing_support::ReadPublicKey(mTrustStore->loadPublicKey(key).GetObject());
    const std::string chain = IssuedBy(mFactory.intermediate, traits).Pem();
    ASSERT_EQ(mTrustStore->storeCertificate(mTrustStore->makeCertId("OWN").GetObject(),
                                            ByteVector(chain.begin(), chain.end())),
              crypto::common::CryptoResultCode::kSuccess);
    const auto encoder = create().GetObject();
    ASSERT_NE(encoder, nullptr);
    EXPECT_TRUE(encoder->encode(Bytes("payload"), {}).IsSuccess());
    ASSERT_EQ(mTrustStore->deleteKeyPair(key), crypto::common::CryptoResultCode::kSuccess);
    EXPECT_EQ(encoder->encode(Bytes("payload"), {}).GetCode(), TIVEResultCode::kKeyNotFound);
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
}

}  // namespace

}  // namespace orv::sec::tive
