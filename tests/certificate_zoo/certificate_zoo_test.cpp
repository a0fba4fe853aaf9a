#include "certificate_zoo/certificate_zoo.h"

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

namespace testing_support {

namespace {

/// What OpenSSL's own path check makes of the leaf.
int VerifyResult(const Identity& root, const Identity& intermediate, const Identity& leaf) {
    X509_STORE* store = X509_STORE_new();
    X509_STORE_add_cert(store, root.certificate.get());
    STACK_OF(X509)* untrusted = sk_X509_new_null();
    sk_X509_push(untrusted, intermediate.certificate.get());
    X509_STORE_CTX* context = X509_STORE_CTX_new();
    X509_STORE_CTX_init(context, store, leaf.certificate.get(), untrusted);
    X509_verify_cert(context);
    const int result = X509_STORE_CTX_get_error(context);
    X509_STORE_CTX_free(context);
    sk_X509_free(untrusted);
    X509_STORE_free(store);
    return result;
}

TEST(CertificateZooTest, GoodAndBadCertificatesAreWhatTheyClaimToBe) {
    const Family family;
    const auto result = [&family](const CertificateTraits& traits) {
        return VerifyResult(family.root, family.intermediate,
                            IssuedBy(family.intermediate, traits));
    };
    EXPECT_EQ(VerifyResult(family.root, family.intermediate, family.leaf), X509_V_OK);

    CertificateTraits broken;
    broken.hasBrokenSignature = true;
    EXPECT_EQ(result(broken), X509_V_ERR_CERT_SIGNATURE_FAILURE);

    CertificateTraits expired;
    expired.notAfter = std::chrono::system_clock::now() - std::chrono::minutes(1);
    EXPECT_EQ(result(expired), X509_V_ERR_CERT_HAS_EXPIRED);

    CertificateTraits rsa;
    rsa.key = MakeKey("RSA2048");
    EXPECT_EQ(result(rsa), X509_V_OK);

    const Identity subordinate = IssuedBy(family.intermediate, CaTraits("Subordinate"));
    EXPECT_EQ(VerifyResult(family.intermediate, subordinate, IssuedBy(subordinate, {})),
              X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT);
}

}  // namespace

}  // namespace testing_support
