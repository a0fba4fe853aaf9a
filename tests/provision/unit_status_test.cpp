#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <orv/sec/crypto/crypto_lib.h>

#include "certificate_zoo/certificate_zoo.h"
#include "client_store/client_store.h"
#include "program_test.h"

namespace provision {

namespace {

using nlohmann::json;
using std::chrono::hours;
using std::chrono::seconds;
using ::testing::HasSubstr;
using testing_support::CertificateTraits;
using testing_support::Family;

const std::chrono::system_clock::time_point kNow{seconds(1795248900)};
constexpr const char* kNowText = "2026-11-21T08:15:00Z";
constexpr hours kDay{24};

CertificateTraits Until(std::chrono::system_clock::duration end) {
    CertificateTraits traits;
    traits.notBefore = kNow - kDay;
    traits.notAfter = kNow + end;
    return traits;
}

/// The real program on a store that was provisioned and, where a test wants it, enrolled.
class UnitStatusTest : public ProgramTest {
protected:
    UnitStatusTest() {
        ::setenv("ORV_CRYPTO_DIR", mStore.c_str(), 1);
        testing_support::ProvisionStore(mStore, mProduct.root.Pem(), &mFactory);
    }

    ~UnitStatusTest() override { orv::sec::crypto::cleanupCryptoLib(); }

    /// Makes a key pair in the client store and has it certified.
    void Enrol(const CertificateTraits& traits, const Family& issuer, const char* id = "TIV") {
        const auto provider = orv::sec::crypto::initCryptoLib().GetObject();
        ASSERT_NE(provider, nullptr);
        testing_support::ClientStore(*provider, issuer).Enrol(id, traits);
        orv::sec::crypto::cleanupCryptoLib();
    }

    void EnrolUntil(std::chrono::system_clock::duration end) { Enrol(Until(end), mProduct); }

    int Judge(const std::string& command, const std::string& wrapper = "") {
        return Provision(command + " --at " + kNowText, wrapper);
    }

    /// All files of the store, with what they hold.
    std::map<std::string, std::string> Contents() const {
        std::map<std::string, std::string> contents;
        for (const auto& file : std::filesystem::directory_iterator(mStore)) {
            contents[file.path().filename()] = Read("store/" + file.path().filename().string());
        }
        return contents;
    }

    const std::string mStore = mDirectory.File("store");
    const Family mFactory{"Factory"};
    const Family mProduct{"Product"};
};

TEST_F(UnitStatusTest, AnswersAsTheServiceJudges) {
    constexpr const char* kBreak = " SET certificates = x'30' WHERE id = ";
    struct Case {
        const char* name;
        std::function<void()> change;
        int statusExit;
        int verifyExit;
        json expected;
    };
    const auto enrolled = [this](std::chrono::system_clock::duration end) {
        return [this, end] { EnrolUntil(end); };
    };
    const auto damaged = [this](const std::string& sql) {
        return [this, sql] {
            EnrolUntil(730 * kDay);
            testing_support::ExecuteSql(mStore, sql);
        };
    };
    CertificateTraits foreign = Until(730 * kDay);
    foreign.commonName = "VNTREL00000000002:C003";
    CertificateTraits early = Until(730 * kDay);
    early.notBefore = kNow + seconds(1);
    const std::vector<Case> cases = {
        {"provisioned", [] {}, 4, 4, {{"judgement", "NoCertificate"}, {"nextPass", "enrols"}}},
        {"enrolled",
         enrolled(730 * kDay),
         0,
         0,
         {{"judgement", "Ok"},
          {"nextPass", "keeps"},
          {"vin", "VNTREL00000000001"},
          {"keyOpens", true},
          {"keyFits", true},
          {"pathGood", true},
          {"/certificate/daysLeft", 730},
          {"/certificate/notBefore", "2026-11-20T08:15:00Z"},
          {"/certificate/subject", "CN=VNTREL00000000001:C003"}}},
        {"last second", enrolled(seconds(0)), 3, 3, {{"/certificate/daysLeft", 0}}},
        {"expired",
         enrolled(seconds(-1)),
         5,
         5,
         {{"judgement", "ExpiresWithinYear"},
          {"reason", "expired"},
          {"/certificate/daysLeft", -1}}},
        {"too early", [&] { Enrol(early, mProduct); }, 5, 5, {{"reason", "not valid yet"}}},
        {"another unit's",
         [&] { Enrol(foreign, mProduct); },
         5,
         5,
         {{"judgement", "CommonNameMismatch"},
          {"nextPass", "deletesAndEnrols"},
          {"keyFits", true}}},
        {"another root's",
         [this] { Enrol(Until(730 * kDay), Family("Other")); },
         5,
         5,
         {{"judgement", "PathInvalid"}, {"pathGood", false}, {"keyFits", true}}},
        {"another key's",
         damaged("UPDATE key_pair SET certificates = (SELECT CAST('" + mProduct.ChainPem() +
                 "' AS BLOB)) WHERE id = 'TIV'"),
         5,
         5,
         {{"judgement", "KeyMismatch"}, {"keyOpens", true}, {"keyFits", false}}},
        {"damaged key",
         damaged("UPDATE key_pair SET wrapped_private_key = zeroblob(200) WHERE id = 'TIV'"),
         5,
         5,
         {{"judgement", "KeyMismatch"}, {"keyOpens", false}, {"keyFits", true}}},
        {"broken certificate",
         damaged(std::string("UPDATE key_pair") + kBreak + "'TIV'"),
         5,
         5,
         {{"judgement", "NoCertificate"},
          {"reason", "the certificate does not parse"},
          {"/broken/0/id", "TIV"}}},
        {"broken root",
         damaged(std::string("UPDATE certificate") + kBreak + "'PRODUCT_PKI_ROOT_CERT'"),
         5,
         5,
         {{"judgement", "PathInvalid"}, {"obstacle", "no readable trusted root"}}},
        {"broken base",
         damaged(std::string("UPDATE key_pair") + kBreak + "'ECU_BASE_CERT'"),
         5,
         5,
         {{"judgement", nullptr},
          {"nextPass", "endsEarly"},
          {"obstacle", "the base certificate does not parse"}}},
        {"no base",
         damaged("DELETE FROM key_pair WHERE id = 'ECU_BASE_CERT'"),
         5,
         4,
         {{"vin", nullptr}, {"reason", "no base certificate"}, {"keyFits", true}}},
        {"base key damaged",
         damaged("UPDATE key_pair SET wrapped_private_key = zeroblob(200) "
                 "WHERE id = 'ECU_BASE_CERT'"),
         5,
         5,
         {{"nextPass", "keeps"}, {"obstacle", "the base key does not sign"}}},
        {"364 days, while a request is under way",
         [this] {
             EnrolUntil(364 * kDay);
             Enrol(Until(730 * kDay), mProduct, "TIV_CSR");
         },
         3,
         3,
         {{"judgement", "ExpiresWithinYear"},
          {"nextPass", "enrols"},
          {"reason", "expires within a year"},
          {"isBeingReplaced", false}}},
        {"interrupted",
         [this] { Enrol(Until(730 * kDay), mProduct, "TIV_CSR"); },
         4,
         4,
         {{"judgement", "NoCertificate"}, {"isBeingReplaced", true}}},
    };
    std::filesystem::copy(mStore, mDirectory.File("provisioned"));
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        std::filesystem::remove_all(mStore);
        std::filesystem::copy(mDirectory.File("provisioned"), mStore);
        ASSERT_EQ(::chmod(mStore.c_str(), 0700), 0);
        one.change();
        const auto before = Contents();

        EXPECT_EQ(Judge("verify"), one.verifyExit) << Read("output") << Read("errors");
        EXPECT_EQ(Judge("status"), one.statusExit) << Read("output") << Read("errors");
        EXPECT_EQ(Judge("status --json"), one.statusExit);
        const json status = json::parse(Read("output"));
        EXPECT_EQ(status["at"], kNowText);
        for (const auto& [name, value] : one.expected.items()) {
            const json::json_pointer member(name.front() == '/' ? name : "/" + name);
            EXPECT_EQ(status.value(member, json("absent")), value) << name << status;
        }
        EXPECT_EQ(Provision("show --json"), 0) << Read("errors");
        EXPECT_EQ(Contents(), before);
    }
}

TEST_F(UnitStatusTest, ABrokenEntryHidesNoOther) {
    EnrolUntil(730 * kDay);
    testing_support::ExecuteSql(
        mStore, "UPDATE certificate SET certificates = x'30' WHERE id = 'PRODUCT_PKI_ROOT_CERT'");
    EXPECT_EQ(Provision("show"), 0);
    EXPECT_THAT(Read("output"), HasSubstr("PRODUCT_PKI_ROOT_CERT\t0\tbroken: "));
    EXPECT_THAT(Read("output"), HasSubstr("TIV\tkey\tTIV\t1\tCN=VNTREL00000000001:C003"));
    EXPECT_EQ(Provision("show --json PRODUCT_PKI_ROOT_CERT"), 0);
    EXPECT_TRUE(json::parse(Read("output"))["entries"][0]["fault"].is_string());
    EXPECT_EQ(Judge("verify"), 5);
    EXPECT_THAT(Read("output"), HasSubstr("in order: KORU key ECU_BASE_CERT: "));
    EXPECT_EQ(Provision("export"), 1);
    EXPECT_THAT(Read("errors"), HasSubstr("PRODUCT_PKI_ROOT_CERT"));
    EXPECT_EQ(Provision("remove PRODUCT_PKI_ROOT_CERT"), 0) << Read("errors");
}

TEST_F(UnitStatusTest, ReadsBesideTheServiceAndWhereNothingCanBeWritten) {
    EnrolUntil(730 * kDay);
    const auto before = Contents();
    const std::string readOnly =
        "bwrap --dev-bind / / --ro-bind " + mDirectory.Path().string() + "/store " + mStore;
    ASSERT_TRUE(orv::sec::crypto::initCryptoLib().IsSuccess());
    for (const std::string& wrapper : {std::string(), readOnly}) {
        for (const char* command : {"show", "export", "verify", "status"}) {
            const bool judges =
                std::string(command) == "verify" || std::string(command) == "status";
            EXPECT_EQ(judges ? Judge(command, wrapper) : Provision(command, wrapper), 0)
                << wrapper << command << Read("errors");
        }
    }
    EXPECT_EQ(Contents(), before);
}

TEST_F(UnitStatusTest, AStoreThatTheServiceWouldNotOpenIsNoAnswer) {
    EnrolUntil(730 * kDay);
    const auto refused = [this](const char* reason) {
        for (const char* command : {"show", "verify", "status --json"}) {
            EXPECT_EQ(Provision(command), 1) << command;
            EXPECT_THAT(Read("errors"), HasSubstr(reason)) << command;
            EXPECT_EQ(Read("output"), "");
        }
    };
    ASSERT_EQ(::chmod((mStore + "/wrapping.key").c_str(), 0440), 0);
    refused("wrapping.key");
    ASSERT_EQ(::chmod((mStore + "/wrapping.key").c_str(), 0400), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown((mStore + "/store.db").c_str(), 1, 1), 0);
        refused("owned by user 1");
        ASSERT_EQ(::chown((mStore + "/store.db").c_str(), 0, 0), 0);
    }
    std::filesystem::resize_file(mStore + "/store.db", 0);
    refused("the store is lost");
    std::filesystem::remove_all(mStore);
    refused("there is no store");
    EXPECT_FALSE(std::filesystem::exists(mStore));
    EXPECT_GE(Provision("status --at yesterday"), 100);
}

TEST_F(UnitStatusTest, ExportsPublicPartsAndOverwritesOnlyWhenTold) {
    ASSERT_EQ(Provision("export ECU_BASE_CERT --out base.pem"), 0) << Read("errors");
    EXPECT_EQ(Read("base.pem"), mFactory.ChainPem());
    ASSERT_EQ(Provision("export ECU_BASE_CERT --public-key"), 0) << Read("errors");
    const std::string key = Read("output");
    ASSERT_EQ(std::system(("cd " + mDirectory.Path().string() +
                           " && openssl x509 -pubkey -noout -in base.pem >openssl.pem")
                              .c_str()),
              0);
    EXPECT_EQ(key, Read("openssl.pem"));
    EXPECT_EQ(Provision("export PRODUCT_PKI_ROOT_CERT --public-key"), 1);
    EXPECT_EQ(Provision("export PRODUCT_PKI_ROOT_CERT --out base.pem"), 1);
    EXPECT_THAT(Read("errors"), HasSubstr("base.pem: File exists"));
    EXPECT_EQ(Read("base.pem"), mFactory.ChainPem());
    EXPECT_EQ(Provision("export PRODUCT_PKI_ROOT_CERT --out base.pem --force"), 0);
    EXPECT_EQ(Read("base.pem"), mProduct.root.Pem());

    std::filesystem::create_directory(mDirectory.File("out"));
    ASSERT_EQ(Provision("export --directory out"), 0) << Read("errors");
    EXPECT_EQ(Read("out/KORU.key.ECU_BASE_CERT.pem"), mFactory.ChainPem());
    std::filesystem::remove(mDirectory.File("out/KORU.certificate.PRODUCT_PKI_ROOT_CERT.pem"));
    EXPECT_EQ(Provision("export --directory out"), 1);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mDirectory.File("out")), {}), 1);
    ASSERT_EQ(Provision("export --directory out --public-key --of KORU"), 0);
    EXPECT_EQ(Read("out/KORU.key.ECU_BASE_CERT.public.pem"), key);
}

}  // namespace

}  // namespace provision
