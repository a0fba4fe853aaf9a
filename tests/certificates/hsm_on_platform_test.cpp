#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "certificate_zoo/certificate_zoo.h"
#include "certificates/hsm.h"
#include "client_store/client_store.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace vintrel {

namespace {

using std::chrono::hours;
using std::chrono::seconds;
using testing_support::CapturedLog;
using testing_support::CaTraits;
using testing_support::CertificateTraits;
using testing_support::Family;
using testing_support::Identity;
using testing_support::IssuedBy;
using testing_support::Key;
using testing_support::MakeKey;
using testing_support::PemOf;

constexpr const char* kVin = "WVTEST00000000001";
constexpr const char* kCommonName = "WVTEST00000000001:C003";
constexpr hours kDay{24};
constexpr hours kYear{24 * 365};
const std::chrono::system_clock::time_point kNow{seconds(1795248900)};  // 2026/11/21 08:15:00 UTC
// The largest that the store takes.
constexpr std::size_t kMaxChainBytes = std::size_t{256} * 1024;

Key KeyOf(const std::vector<std::uint8_t>& csr) {
    return testing_support::ReadRequest(csr, kCommonName);
}

CertificateTraits LeafTraits(const Key& key) {
    CertificateTraits traits;
    traits.commonName = kCommonName;
    traits.key = key;
    traits.notBefore = kNow - kDay;
    traits.notAfter = kNow + 2 * kYear;
    return traits;
}

/// A chain for the key of a request, and the first check of both judgements that it fails.
struct Case {
    std::string mName;
    std::function<std::string(const Key&)> mChain;
    StatusCode mStatus;
    /// Whether the store takes it for the key: what belongs to no key only gets in by force.
    bool mIsStorable = true;
};

/// The HSM facade on the host platform's crypto library, with a backend's CA. The library is open
/// for the whole process, so all tests share one store, and each begins without a certificate.
class HsmOnPlatformTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sDirectory = std::make_unique<testing_support::TemporaryDirectory>();
        ::setenv("ORV_CRYPTO_DIR", sDirectory->Path().c_str(), 1);
        sBackend = std::make_unique<Family>("Product");
        sOther = std::make_unique<Family>("Second");
        const Family factory("Factory", std::string(kVin) + ":BASE:1");
        testing_support::ProvisionStore(sDirectory->Path(), PemOf({sOther->root, sBackend->root}),
                                        &factory);
    }

    static void TearDownTestSuite() {
        sBackend.reset();
        sOther.reset();
        sDirectory.reset();
    }

    void SetUp() override { ASSERT_FALSE(mHsm.DeleteTivCertificateFromTrustStore()); }

    static std::string Sound(const Key& key) {
        return PemOf({IssuedBy(sBackend->intermediate, LeafTraits(key)), sBackend->intermediate});
    }

    /// A leaf that differs from a sound one in a field.
    template <typename Field, typename Value>
    static auto Leaf(Field CertificateTraits::*field, Value value) {
        return [field, value](const Key& key) {
            CertificateTraits traits = LeafTraits(key);
            traits.*field = value;
            return PemOf({IssuedBy(sBackend->intermediate, traits), sBackend->intermediate});
        };
    }

    /// A sound leaf below other certificates.
    static auto Below(const std::vector<Identity>& chain) {
        return [chain](const Key& key) {
            return IssuedBy(chain.front(), LeafTraits(key)).Pem() + PemOf(chain);
        };
    }

    /// A sound leaf below an intermediate that differs from a sound one in a field.
    template <typename Field, typename Value>
    static auto Intermediate(Field CertificateTraits::*field, Value value) {
        CertificateTraits traits = CaTraits("Product CA");
        traits.*field = value;
        return Below({IssuedBy(sBackend->root, traits)});
    }

    StatusCode JudgeStored(const Case& row, const std::string& chain) {
        EXPECT_EQ(mHsm.StoreTivCertificateToTrustStore(chain), !row.mIsStorable);
        if (!row.mIsStorable && chain.size() <= kMaxChainBytes) {
            EXPECT_FALSE(
                mHsm.StoreTivCertificateToTrustStore(Sound(KeyOf(mHsm.GenerateCsr(kVin)))));
            testing_support::ExecuteSql(sDirectory->Path(),
                                        "UPDATE key_pair SET certificates = CAST('" + chain +
                                            "' AS BLOB) WHERE store = 'TIV' AND id = 'TIV'");
        }
        return mHsm.CheckTrustStoreTivValidity(kVin);
    }

    static inline std::unique_ptr<testing_support::TemporaryDirectory> sDirectory;
    static inline std::unique_ptr<Family> sBackend;
    /// Its root is known, too.
    static inline std::unique_ptr<Family> sOther;
    Hsm mHsm{[] { return kNow; }};
};

TEST_F(HsmOnPlatformTest, TheVinComesFromTheBaseCertificate) {
    EXPECT_EQ(mHsm.GetKoruVin(), kVin);
}

TEST_F(HsmOnPlatformTest, TheFirstFaultOfAChainDecidesBothJudgements) {
    using Traits = CertificateTraits;
    constexpr StatusCode kOk = StatusCode::Ok;
    constexpr StatusCode kUnreadable = StatusCode::NoCertificate;
    constexpr StatusCode kName = StatusCode::CommonNameMismatch;
    constexpr StatusCode kKey = StatusCode::KeyMismatch;
    constexpr StatusCode kPath = StatusCode::PathInvalid;
    constexpr StatusCode kDates = StatusCode::ExpiresWithinYear;
    const auto text = [](const std::string& bytes) {
        return [bytes](const Key&) { return bytes; };
    };
    const auto ends = [](auto after) { return Leaf(&Traits::notAfter, kNow + after); };
    const auto followed = [](const std::string& more) {
        return [more](const Key& key) { return Sound(key) + more; };
    };
    const auto cutOff = [](const Key& key) { return Sound(key).substr(0, 300); };
    const auto alone = [](const Key& key) {
        return IssuedBy(sBackend->intermediate, LeafTraits(key)).Pem();
    };
    const auto fromTheTop = [&alone](const Key& key) {
        return sBackend->intermediate.Pem() + alone(key);
    };
    const Family stranger("Product");
    const auto faulty = [&stranger](const std::string& name, bool isOurKey) {
        return [&stranger, name, isOurKey](const Key& key) {
            CertificateTraits traits = LeafTraits(isOurKey ? key : MakeKey());
            traits.commonName = name;
            traits.notAfter = kNow - kDay;
            traits.digest = "sha1";
            return IssuedBy(stranger.intermediate, traits).Pem();
        };
    };
    const Identity& ca = sBackend->intermediate;
    const Identity& root = sBackend->root;
    const Identity upper = IssuedBy(root, CaTraits("Upper CA"));
    const Identity lower = IssuedBy(upper, CaTraits("Lower CA"));

    const Case cases[] = {
        {"sound", Sound, kOk},
        {"no certificate", text(""), kUnreadable},
        {"garbage", text("no certificate"), kUnreadable, false},
        {"cut off", cutOff, kUnreadable, false},
        {"garbage at the end", followed("x"), kUnreadable, false},
        {"a million bytes", text(std::string(1000000, 'x')), kUnreadable, false},
        {"a million blanks at the end", followed(std::string(1000000, ' ')), kUnreadable, false},
        {"a chain of a hundred", Below(std::vector<Identity>(99, ca)), kUnreadable, false},

        {"wrong name", Leaf(&Traits::commonName, "WVTEST00000000002:C003"), kName},
        {"empty name", Leaf(&Traits::commonName, std::nullopt), kName},
        {"path from the top", fromTheTop, kName, false},
        {"other key", Leaf(&Traits::key, MakeKey()), kKey, false},
        {"short RSA key", Leaf(&Traits::key, MakeKey("RSA1024")), kKey, false},

        {"broken signature", Leaf(&Traits::hasBrokenSignature, true), kPath},
        {"SHA-1 signature", Leaf(&Traits::digest, "sha1"), kPath},
        {"untrusted root", Below({stranger.intermediate}), kPath},
        {"untrusted root in the chain", Below({stranger.intermediate, stranger.root}), kPath},
        {"intermediate missing", alone, kPath},
        {"intermediate that is no CA", Intermediate(&Traits::isCa, false), kPath},
        {"intermediate not signed", Intermediate(&Traits::hasBrokenSignature, true), kPath},
        {"intermediate's SHA-1 signature", Intermediate(&Traits::digest, "sha1"), kPath},
        {"intermediate's short RSA key", Intermediate(&Traits::keyType, "RSA1024"), kPath},
        {"leaf used as issuer", Below({sBackend->leaf, ca}), kPath},
        {"path in the wrong order", Below({upper, lower}), kPath},
        {"path with a gap", Below({lower}), kPath},
        {"path of three", Below({lower, upper}), kOk},
        {"the root at the end", Below({ca, root}), kOk},
        {"below the bundle's other root", Below({sOther->intermediate}), kOk},
        {"the bundle of roots at the end", Below({ca, root, sOther->root}), kPath},

        {"expired", ends(seconds(-1)), kDates},
        {"not yet valid", Leaf(&Traits::notBefore, kNow + seconds(1)), kDates},
        {"valid from now", Leaf(&Traits::notBefore, kNow), kOk},
        {"364 days", ends(kYear - kDay), kDates},
        {"a second less than 365 days", ends(kYear - seconds(1)), kDates},
        {"365 days", ends(kYear), kOk},
        {"365 days and a second", ends(kYear + seconds(1)), kOk},
        {"no end", Leaf(&Traits::hasNoEnd, true), kOk},

        {"name, key, path and dates", faulty("stranger", false), kName, false},
        {"name, path and dates", faulty("stranger", true), kName},
        {"key, path and dates", faulty(kCommonName, false), kKey, false},
        {"path and dates", faulty(kCommonName, true), kPath},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.mName);
        ASSERT_FALSE(mHsm.DeleteTivCertificateFromTrustStore());
        const std::string chain = row.mChain(KeyOf(mHsm.GenerateCsr(kVin)));
        // The dates of a received chain come into play only when it is stored.
        EXPECT_EQ(mHsm.CheckTivCertificate(chain, kVin),
                  row.mStatus != kOk && row.mStatus != kDates);
        EXPECT_EQ(JudgeStored(row, chain), row.mStatus);
    }
}

TEST_F(HsmOnPlatformTest, ARenewalLeavesTheAcceptedPairAloneUntilItIsStored) {
    const auto endless = Leaf(&CertificateTraits::hasNoEnd, true);
    const std::string first = Sound(KeyOf(mHsm.GenerateCsr(kVin)));
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::NoCertificate);
    EXPECT_FALSE(mHsm.StoreTivCertificateToTrustStore(first));

    const std::string renewed = endless(KeyOf(mHsm.GenerateCsr(kVin)));
    EXPECT_TRUE(mHsm.StoreTivCertificateToTrustStore(first));
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::Ok);
    EXPECT_FALSE(mHsm.StoreTivCertificateToTrustStore(renewed));
    CapturedLog log;
    Hsm inTwoYears([] { return kNow + 2 * kYear; });
    EXPECT_EQ(inTwoYears.CheckTrustStoreTivValidity(kVin), StatusCode::Ok);
    EXPECT_TRUE(
        log.Contains("I X509CryptoApiValidator: The TIV Certificate expires at 9999/12/31 "
                     "23:59:59 UTC"));

    EXPECT_FALSE(mHsm.DeleteTivCertificateFromTrustStore());
    EXPECT_FALSE(mHsm.DeleteTivCertificateFromTrustStore());
    EXPECT_EQ(mHsm.CheckTrustStoreTivValidity(kVin), StatusCode::NoCertificate);
    EXPECT_TRUE(mHsm.StoreTivCertificateToTrustStore(renewed));
}

}  // namespace

}  // namespace vintrel
