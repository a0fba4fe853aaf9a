#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/x509.h>

#include "certificate_zoo/certificate_zoo.h"
#include "certificates/hsm.h"
#include "orv_sec_crypto/store_administration.h"
#include "testing/temporary_directory.h"

namespace vintrel {

namespace {

using orv::sec::crypto::host::StoreAdministration;
using std::chrono::system_clock;
using testing_support::CaTraits;
using testing_support::CertificateTraits;
using testing_support::Family;
using testing_support::Identity;

constexpr const char* kVin = "WVTEST00000000001";
constexpr const char* kCommonName = "WVTEST00000000001:C003";

/// The HSM facade on the host platform's crypto library, with a backend's CA. The library is open
/// for the whole process, so all tests share one store, and each begins without a certificate.
class HsmOnPlatformTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sDirectory = std::make_unique<testing_support::TemporaryDirectory>();
        ::setenv("ORV_CRYPTO_DIR", sDirectory->Path().c_str(), 1);
        sBackend = std::make_unique<Family>("Product");
        const Family factory("Factory", std::string(kVin) + ":BASE:1");
        std::unique_ptr<StoreAdministration> administration;
        ASSERT_TRUE(StoreAdministration::CreateOrOpen(sDirectory->Path(), administration));
        ASSERT_TRUE(
            administration->StoreCertificate("PRODUCT_PKI_ROOT_CERT", sBackend->root.Pem()));
        ASSERT_TRUE(administration->ImportKeyPair(
            "ECU_BASE_CERT", testing_support::PrivateKeyPem(factory.leaf.key), factory.ChainPem()));
    }

    static void TearDownTestSuite() {
        sBackend.reset();
        sDirectory.reset();
    }

    void SetUp() override { ASSERT_FALSE(mHsm.DeleteTivCertificateFromTrustStore()); }

    /// What the backend answers to a request: the chain of a certificate for the requester's key.
    static std::string Answer(const std::vector<std::uint8_t>& csr, const Identity& issuer,
                              bool endless = false) {
        const unsigned char* position = csr.data();
        const std::unique_ptr<X509_REQ, decltype(&X509_REQ_free)> request(
            d2i_X509_REQ(nullptr, &position, static_cast<long>(csr.size())), X509_REQ_free);
        if (!request || X509_REQ_verify(request.get(), X509_REQ_get0_pubkey(request.get())) != 1) {
            ADD_FAILURE() << "not a request that is signed with its own key";
            return {};
        }
        char name[64] = {};
        X509_NAME_get_text_by_NID(X509_REQ_get_subject_name(request.get()), NID_commonName, name,
                                  sizeof(name));
        CertificateTraits traits;
        traits.commonName = name;
        traits.key = {X509_REQ_get_pubkey(request.get()), EVP_PKEY_free};
        const Identity leaf = testing_support::IssuedBy(issuer, traits);
        if (endless) {
            // What RFC 5280 has for "no end".
            ASN1_TIME_set_string(X509_getm_notAfter(leaf.certificate.get()), "99991231235959Z");
            X509_sign(leaf.certificate.get(), issuer.key.get(), EVP_sha256());
        }
        return testing_support::PemOf({leaf, issuer});
    }

    static system_clock::time_point InThirteenMonths() {
        return system_clock::now() + std::chrono::hours(24 * 400);
    }

    static std::unique_ptr<testing_support::TemporaryDirectory> sDirectory;
    static std::unique_ptr<Family> sBackend;
    Hsm mHsm;
};

std::unique_ptr<testing_support::TemporaryDirectory> HsmOnPlatformTest::sDirectory;
std::unique_ptr<Family> HsmOnPlatformTest::sBackend;

TEST_F(HsmOnPlatformTest, TheVinComesFromTheBaseCertificate) {
    EXPECT_EQ(mHsm.GetKoruVin(), kVin);
}

TEST_F(HsmOnPlatformTest, AnAnsweredRequestBecomesTheStoredCertificateUntilItIsDeleted) {
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::NoCertificate);
    const std::string chain = Answer(mHsm.GenerateCsr(kVin), sBackend->intermediate);
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::NoCertificate);
    EXPECT_FALSE(mHsm.CheckTivCertificate(chain, kVin));
    EXPECT_FALSE(mHsm.StoreTivCertificateToTrustStore(chain));
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::Ok);
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity("WVTEST00000000002"), StatusCode::CommonNameMismatch);
    EXPECT_EQ(Hsm(InThirteenMonths).CheckTrustStoreTivValidity(kVin),
              StatusCode::ExpiresWithinYear);

    // The pending key of a renewal leaves the accepted one alone.
    const std::string renewed = Answer(mHsm.GenerateCsr(kVin), sBackend->intermediate, true);
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::Ok);
    EXPECT_TRUE(mHsm.CheckTivCertificate(chain, kVin));
    EXPECT_FALSE(mHsm.CheckTivCertificate(renewed, kVin));
    EXPECT_FALSE(mHsm.StoreTivCertificateToTrustStore(renewed));
    EXPECT_EQ(Hsm(InThirteenMonths).CheckTrustStoreTivValidity(kVin), StatusCode::Ok);

    EXPECT_FALSE(mHsm.DeleteTivCertificateFromTrustStore());
    EXPECT_FALSE(mHsm.DeleteTivCertificateFromTrustStore());
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::NoCertificate);
    EXPECT_TRUE(mHsm.StoreTivCertificateToTrustStore(renewed));
}

TEST_F(HsmOnPlatformTest, ACertificateForAnotherKeyIsRefusedAndChangesNothing) {
    const std::string chain = Answer(mHsm.GenerateCsr(kVin), sBackend->intermediate);
    EXPECT_FALSE(mHsm.StoreTivCertificateToTrustStore(chain));
    mHsm.GenerateCsr(kVin);
    EXPECT_TRUE(mHsm.CheckTivCertificate(chain, kVin));
    EXPECT_TRUE(mHsm.StoreTivCertificateToTrustStore(chain));
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::Ok);
}

TEST_F(HsmOnPlatformTest, ACertificateOfAForeignRootIsRefusedAndWouldBeAnInvalidPath) {
    const Identity stranger = testing_support::SelfSigned(CaTraits("Product CA"));
    const std::string chain = Answer(mHsm.GenerateCsr(kVin), stranger);
    EXPECT_TRUE(mHsm.CheckTivCertificate(chain, kVin));
    EXPECT_FALSE(mHsm.StoreTivCertificateToTrustStore(chain));
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::PathInvalid);
}

TEST_F(HsmOnPlatformTest, WhatIsNoChainIsRefused) {
    const std::string chain = Answer(mHsm.GenerateCsr(kVin), sBackend->intermediate);
    EXPECT_TRUE(mHsm.CheckTivCertificate("", kVin));
    EXPECT_TRUE(mHsm.CheckTivCertificate("no certificate", kVin));
    EXPECT_TRUE(mHsm.CheckTivCertificate(chain.substr(0, chain.size() / 3), kVin));
    EXPECT_TRUE(mHsm.CheckTivCertificate(chain, "WVTEST00000000002"));
}

}  // namespace

}  // namespace vintrel
