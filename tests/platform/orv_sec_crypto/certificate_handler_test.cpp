#include <chrono>
#include <map>

#include "store_fixture.h"

namespace orv::sec::crypto::test {

namespace {

using Traits = CertificateTraits;

class CertificateHandlerTest : public OpenLibraryTest {
protected:
    void SetUp() override {
        OpenLibraryTest::SetUp();
        mHandler = mProvider->createCertificateHandler().GetObject();
        ASSERT_NE(mHandler, nullptr);
    }

    CryptoResultCode Verify(const Identity& certificate, const Identity& issuer) {
        return mHandler->verifyCertificate(ToBytes(certificate.Pem()), ToBytes(issuer.Pem()));
    }

    std::shared_ptr<operation::ICertificateHandler> mHandler;
};

struct PathCase {
    const char* name;
    CryptoResultCode expected;
    Traits issuer;
    Traits subject;
};

template <typename Field, typename Value>
Traits With(Traits traits, Field Traits::*field, Value value) {
    traits.*field = value;
    return traits;
}

Traits LeafTraits() {
    return With({}, &Traits::extendedKeyUsage, "critical,clientAuth");
}

Traits WithExtension(Traits traits, const char* name, const char* value) {
    traits.extensions[name] = value;
    return traits;
}

std::vector<PathCase> PathCases() {
    const auto good = CryptoResultCode::kSuccess;
    const auto bad = CryptoResultCode::kVerificationFailed;
    const Traits ca = CaTraits("CA");
    const Traits leaf = LeafTraits();
    const auto keyed = [&ca](const char* type) { return With(ca, &Traits::keyType, type); };
    const auto signedBy = [&leaf](const char* digest) {
        return With(leaf, &Traits::digest, digest);
    };
    const auto bare = [](const Traits& traits, std::map<std::string, std::string> all) {
        all.insert({{"basicConstraints", ""},
                    {"keyUsage", ""},
                    {"extendedKeyUsage", ""},
                    {"subjectKeyIdentifier", ""},
                    {"authorityKeyIdentifier", ""}});
        return With(traits, &Traits::extensions, all);
    };
    const auto expired = [](const Traits& traits) {
        const auto day = std::chrono::hours(24);
        return With(With(traits, &Traits::notBefore, traits.notBefore - 2 * day), &Traits::notAfter,
                    traits.notBefore - day);
    };
    const auto limited = [&ca](int length) { return With(ca, &Traits::pathLength, length); };
    const Traits bareLeaf = bare(leaf, {});
    return {
        {"Sha384AndP384Issuer", good, keyed("P-384"), signedBy("sha384")},
        {"Rsa2048Issuer", good, keyed("RSA2048"), leaf},
        {"IssuerWithoutKeyUsage", good, bare(ca, {{"basicConstraints", "CA:TRUE"}}), bareLeaf},
        {"ExpiredIssuer", good, expired(ca), leaf},
        {"UncriticalUnknownExtension", good, ca,
         WithExtension(leaf, "1.3.6.1.4.1.99999.1", "ASN1:UTF8String:x")},
        {"CriticalUnknownExtension", bad, ca,
         WithExtension(leaf, "1.3.6.1.4.1.99999.1", "critical,ASN1:UTF8String:x")},
        {"CriticalUnknownExtensionOfIssuer", bad,
         WithExtension(ca, "1.3.6.1.4.1.99999.1", "critical,ASN1:UTF8String:x"), leaf},
        {"CriticalPolicyConstraints", bad,
         WithExtension(ca, "policyConstraints", "critical,requireExplicitPolicy:0"), leaf},
        {"IssuerWithoutBasicConstraints", bad, bare(ca, {{"keyUsage", "critical,keyCertSign"}}),
         bareLeaf},
        {"IssuerMayNotSignCertificates", bad,
         bare(ca, {{"basicConstraints", "critical,CA:TRUE"},
                   {"keyUsage", "critical,digitalSignature"}}),
         bareLeaf},
        {"Md5", bad, keyed("RSA2048"), signedBy("md5")},
        {"ShortRsaLeaf", bad, ca, With(leaf, &Traits::keyType, "RSA1024")},
        {"ShortCurveLeaf", bad, ca, With(leaf, &Traits::keyType, "P-192")},
        {"PathLengthForbidsIntermediate", bad, limited(0), CaTraits("Intermediate")},
        {"PathLengthAllowsIntermediate", good, limited(1), CaTraits("Intermediate")},
        {"NameConstraintsHold", good,
         WithExtension(ca, "nameConstraints", "critical,permitted;DNS:unit.example"),
         WithExtension(leaf, "subjectAltName", "DNS:a.unit.example")},
        {"NameConstraintsViolated", bad,
         WithExtension(ca, "nameConstraints", "critical,permitted;DNS:unit.example"),
         WithExtension(leaf, "subjectAltName", "DNS:elsewhere.example")},
    };
}

TEST_F(CertificateHandlerTest, APathIsJudgedByItsIssuerAndNotByDates) {
    for (const PathCase& path : PathCases()) {
        SCOPED_TRACE(path.name);
        const Identity issuer = SelfSigned(path.issuer);
        const Identity subject = IssuedBy(issuer, path.subject);
        EXPECT_EQ(Verify(subject, issuer), path.expected);
        EXPECT_EQ(mHandler->verifyCertificate(ToBytes(subject.Der()), ToBytes(issuer.Der())),
                  path.expected);
    }
}

TEST_F(CertificateHandlerTest, OnlyTheIssuerItselfVerifies) {
    const Identity issuer = SelfSigned(CaTraits("CA"));
    const Traits sameKey = With(CaTraits("CA"), &Traits::key, issuer.key);
    const Identity otherKey = SelfSigned(CaTraits("CA"));
    const Identity leaf = IssuedBy(issuer, LeafTraits());
    const Identity leafWithoutKeyId =
        IssuedBy(issuer, WithExtension(LeafTraits(), "authorityKeyIdentifier", ""));

    const Identity strangers[] = {
        leaf, otherKey, SelfSigned(With(sameKey, &Traits::commonName, "Other")),
        SelfSigned(WithExtension(sameKey, "subjectKeyIdentifier", "0102030405"))};
    for (const Identity& stranger : strangers) {
        EXPECT_EQ(Verify(leaf, stranger), CryptoResultCode::kVerificationFailed);
    }
    EXPECT_EQ(Verify(leafWithoutKeyId, otherKey), CryptoResultCode::kVerificationFailed);
    EXPECT_EQ(Verify(leafWithoutKeyId, issuer), CryptoResultCode::kSuccess);
}

TEST_F(CertificateHandlerTest, RootVerifiesItselfAndOneCertificateAtATimeIsVerified) {
    const Identity root = SelfSigned(With(CaTraits("Root"), &Traits::pathLength, 0));

    EXPECT_EQ(Verify(root, root), CryptoResultCode::kSuccess);
    EXPECT_EQ(mHandler->verifyCertificate(ToBytes(root.Pem() + root.Pem()), ToBytes(root.Pem())),
              CryptoResultCode::kInvalidFormat);
}

TEST_F(CertificateHandlerTest, ChainSplitsInItsOrderAndElementsServeEverywhere) {
    const Identity root = SelfSigned(CaTraits("Root"));
    const Identity leaf = IssuedBy(root, LeafTraits());
    const auto parts =
        mHandler->splitCertificatesChain(ToBytes("\r\n" + leaf.Pem() + root.Pem() + " \n"));

    ASSERT_TRUE(parts.IsSuccess()) << parts.GetMessage();
    ASSERT_EQ(parts.GetObject().size(), 2U);
    EXPECT_EQ(parts.GetObject()[0], ToBytes(leaf.Der()));
    EXPECT_EQ(mHandler->verifyCertificate(parts.GetObject()[0], parts.GetObject()[1]),
              CryptoResultCode::kSuccess);
    EXPECT_EQ(mHandler->splitCertificatesChain(ToBytes(leaf.Der())).GetObject().size(), 1U);
    EXPECT_EQ(
        mHandler->pemToDer(ToBytes(leaf.Pem()), operation::PemFormat::kCertificate).GetObject(),
        ToBytes(leaf.Der()));
    EXPECT_EQ(
        mHandler->pemToDer(ToBytes(leaf.Pem()), static_cast<operation::PemFormat>(1)).GetCode(),
        CryptoResultCode::kUnsupported);
}

TEST_F(CertificateHandlerTest, GarbageIsRefused) {
    const Identity leaf = SelfSigned(LeafTraits());
    const std::string pem = leaf.Pem();
    ByteVector longDer = ToBytes(leaf.Der());
    longDer.push_back(0);
    ByteVector shortDer = ToBytes(leaf.Der());
    shortDer.pop_back();
    std::string damaged = pem;
    damaged.replace(60, 4, "!!!!");
    const std::vector<ByteVector> inputs = {
        {},
        ToBytes(" \n"),
        ToBytes("garbage"),
        ToBytes(pem + "garbage"),
        ToBytes("garbage\n" + pem),
        ToBytes(pem.substr(0, pem.size() / 2)),
        ToBytes(damaged),
        ToBytes(PrivateKeyPem(leaf.key)),
        ToBytes(pem + PrivateKeyPem(leaf.key)),
        ToBytes(pem + std::string(1, '\0')),
        ToBytes("-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n"),
        longDer,
        shortDer,
    };

    for (const ByteVector& input : inputs) {
        SCOPED_TRACE(ToText(input));
        EXPECT_EQ(mHandler->splitCertificatesChain(input).GetCode(),
                  CryptoResultCode::kInvalidFormat);
        EXPECT_EQ(mHandler->verifyCertificate(input, ToBytes(leaf.Der())),
                  CryptoResultCode::kInvalidFormat);
        EXPECT_EQ(mHandler->getCertificateIssuerCommonName(input).GetCode(),
                  CryptoResultCode::kInvalidFormat);
        EXPECT_NE(mStore->storeCertificate(Cert("X"), input), CryptoResultCode::kSuccess);
    }
    EXPECT_EQ(mStore->loadCertificate(Cert("X")).GetCode(), CryptoResultCode::kNotFound);
}

TEST_F(CertificateHandlerTest, SizesAreLimited) {
    const std::string pem = SelfSigned(LeafTraits()).Pem();
    std::string sixteen;
    for (int count = 0; count < 16; ++count) {
        sixteen += pem;
    }

    EXPECT_EQ(mHandler->splitCertificatesChain(ToBytes(sixteen)).GetObject().size(), 16U);
    EXPECT_EQ(mHandler->splitCertificatesChain(ToBytes(sixteen + pem)).GetCode(),
              CryptoResultCode::kTooLarge);
    EXPECT_EQ(mHandler->splitCertificatesChain(ByteVector(256 * 1024 + 1, ' ')).GetCode(),
              CryptoResultCode::kTooLarge);
}

TEST_F(CertificateHandlerTest, CommonNameIsTheSubjectsAndMustBeClear) {
    const Identity issuer = SelfSigned(CaTraits("Issuer"));
    const auto nameOf = [&](const std::vector<std::string>& names) {
        const Identity made = IssuedBy(issuer, With({}, &Traits::commonName, std::nullopt));
        for (const std::string& name : names) {
            // As bytes of a fixed type, because OpenSSL checks the length of any other text.
            EXPECT_EQ(X509_NAME_add_entry_by_NID(
                          X509_get_subject_name(made.certificate.get()), NID_commonName,
                          V_ASN1_UTF8STRING, reinterpret_cast<const unsigned char*>(name.data()),
                          static_cast<int>(name.size()), -1, 0),
                      1);
        }
        EXPECT_GT(X509_sign(made.certificate.get(), issuer.key.get(), EVP_sha256()), 0);
        return mHandler->getCertificateIssuerCommonName(ToBytes(made.Pem()));
    };

    EXPECT_EQ(nameOf({"VNTREL0KZ:C003"}).GetObject(), "VNTREL0KZ:C003");
    EXPECT_EQ(nameOf({"Stra\xc3\x9f"
                      "e"})
                  .GetObject(),
              "Stra\xc3\x9f"
              "e");
    EXPECT_EQ(nameOf({}).GetCode(), CryptoResultCode::kNotFound);
    EXPECT_EQ(nameOf({""}).GetCode(), CryptoResultCode::kNotFound);
    EXPECT_EQ(nameOf({"VIN:C003", "OTHER:C003"}).GetCode(), CryptoResultCode::kInvalidFormat);
    EXPECT_EQ(nameOf({std::string("VIN:C003\0.evil", 14)}).GetCode(),
              CryptoResultCode::kInvalidFormat);
}

TEST_F(CertificateHandlerTest, DatesAreSecondsSinceTheEpoch) {
    const auto dates = [&](const char* first, const char* last) {
        // The years lie beyond what the system clock's type holds.
        const Identity made = SelfSigned({});
        X509* certificate = made.certificate.get();
        EXPECT_EQ(ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate), first), 1);
        EXPECT_EQ(ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate), last), 1);
        EXPECT_GT(X509_sign(certificate, made.key.get(), EVP_sha256()), 0);
        const ByteVector bytes = ToBytes(made.Pem());
        return std::make_pair(mHandler->getCertificateNotBeforeDate(bytes).GetObject(),
                              mHandler->getCertificateNotAfterDate(bytes).GetObject());
    };

    EXPECT_EQ(dates("20240229120000Z", "99991231235959Z"),
              std::make_pair(std::int64_t{1709208000}, std::int64_t{253402300799}));
    EXPECT_EQ(dates("19500101000000Z", "20491231235959Z"),
              std::make_pair(std::int64_t{-631152000}, std::int64_t{2524607999}));
}

}  // namespace

}  // namespace orv::sec::crypto::test
