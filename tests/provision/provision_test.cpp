#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "certificate_zoo/certificate_zoo.h"
#include "key_hardware/key_hardware.h"
#include "program_test.h"

namespace provision {

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using testing_support::CaTraits;
using testing_support::CertificateTraits;
using testing_support::Family;
using testing_support::Identity;
using testing_support::PemOf;
using testing_support::PrivateKeyPem;

constexpr const char* kCommonName = "VNTREL00000000001:C003";

class ProvisionTest : public ProgramTest {
protected:
    /// Loads a key and a chain as base certificate; the refusal's text, empty on success.
    std::string LoadBase(const std::string& keyPem, const std::string& chainPem) {
        Write("base.key", keyPem);
        Write("base.pem", chainPem);
        const int status = Provision("base --key base.key --chain base.pem");
        std::string errors = Read("errors");
        EXPECT_EQ(status, errors.empty() ? 0 : 1);
        return errors;
    }

    std::string Show() {
        EXPECT_EQ(Provision("show"), 0);
        return Read("output");
    }

    void Write(const std::string& name, const std::string& text) { mDirectory.Write(name, text); }

    Family mFactory{"Factory", kCommonName};
};

std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, '\t');) {
        fields.push_back(field);
    }
    return fields;
}

TEST_F(ProvisionTest, AFactoryTakesAUnitFromNothingToProvisioned) {
    ASSERT_EQ(Run("vintrel-pki", "create pki"), 0);
    ASSERT_EQ(Run("vintrel-pki", "unit pki --vin VNTREL00000000001 --out unit.pem"), 0);
    struct stat status {};
    ASSERT_EQ(::stat(mDirectory.File("unit.pem").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);

    ASSERT_EQ(Provision("init"), 0);
    EXPECT_THAT(Show(), IsEmpty());
    ASSERT_EQ(Provision("base --key unit.pem --chain unit.pem"), 0) << Read("errors");
    ASSERT_EQ(Provision("root pki/product-root.pem"), 0) << Read("errors");
    ASSERT_EQ(Provision("init"), 0);

    std::istringstream shown(Show());
    std::vector<std::vector<std::string>> lines;
    for (std::string line; std::getline(shown, line);) {
        lines.push_back(Fields(line));
        ASSERT_EQ(lines.back().size(), 9U) << line;
        lines.back().resize(6);
    }
    EXPECT_THAT(lines, ::testing::UnorderedElementsAre(
                           ElementsAre("KORU", "key", "ECU_BASE_CERT", "1",
                                       "CN=VNTREL00000000001:C003", "CN=Factory CA"),
                           ElementsAre("KORU", "key", "ECU_BASE_CERT", "2", "CN=Factory CA",
                                       "CN=Factory Root"),
                           ElementsAre("KORU", "certificate", "PRODUCT_PKI_ROOT_CERT", "1",
                                       "CN=Product Root", "CN=Product Root")));

    ASSERT_EQ(Provision("show --of TIV"), 0);
    EXPECT_THAT(Read("output"), IsEmpty());
    ASSERT_EQ(Provision("show --kind key"), 0);
    EXPECT_THAT(Read("output"), AllOf(HasSubstr("ECU_BASE_CERT"), Not(HasSubstr("ROOT_CERT"))));

    ASSERT_EQ(Provision("show --pem PRODUCT_PKI_ROOT_CERT"), 0);
    EXPECT_EQ(Read("output"), Read("pki/product-root.pem"));
    ASSERT_EQ(Provision("show --pem ECU_BASE_CERT"), 0);
    EXPECT_THAT(Read("output"), Not(HasSubstr("PRIVATE")));
    EXPECT_THAT(Read("unit.pem"), HasSubstr(Read("output")));

    ASSERT_EQ(Provision("remove ECU_BASE_CERT"), 0);
    EXPECT_THAT(Show(), Not(HasSubstr("ECU_BASE_CERT")));
}

TEST_F(ProvisionTest, ABaseCertificateThatDoesNotFitLeavesTheStoreAsItWas) {
    ASSERT_EQ(Provision("init"), 0);
    const std::string keyPem = PrivateKeyPem(mFactory.leaf.key);
    const std::string leafPem = mFactory.leaf.Pem();
    ASSERT_THAT(LoadBase(keyPem, mFactory.ChainPem()), IsEmpty());
    const std::string before = Show();

    const auto leaf = [this](const char* commonName) {
        CertificateTraits traits;
        traits.commonName = commonName;
        traits.key = mFactory.leaf.key;
        return IssuedBy(mFactory.intermediate, traits).Pem();
    };
    CertificateTraits broken;
    broken.key = mFactory.leaf.key;
    broken.hasBrokenSignature = true;
    const Identity rsa = [this] {
        CertificateTraits traits;
        traits.key = testing_support::MakeKey("RSA2048");
        return IssuedBy(mFactory.intermediate, traits);
    }();
    const std::string otherKey = PrivateKeyPem(testing_support::MakeKey());
    const std::string truncated = leafPem.substr(0, leafPem.size() / 2);
    const std::string caPem = mFactory.intermediate.Pem();

    EXPECT_THAT(LoadBase(otherKey, mFactory.ChainPem()), HasSubstr("does not belong"));
    EXPECT_THAT(LoadBase(keyPem, PemOf({mFactory.leaf, mFactory.root})),
                HasSubstr("has not issued the one before it"));
    EXPECT_THAT(LoadBase(keyPem, PemOf({mFactory.leaf, rsa})), HasSubstr("is no CA"));
    EXPECT_THAT(LoadBase(keyPem, IssuedBy(mFactory.intermediate, broken).Pem() + caPem),
                HasSubstr("has not issued the one before it"));
    EXPECT_THAT(LoadBase(PrivateKeyPem(mFactory.intermediate.key), caPem), HasSubstr("a CA's"));
    for (const char* name : {"VNTREL00000000001", "VNTREL00000000001:", ":C003", "SHORT:C003",
                             "VNTREL0000000000I:C003"}) {
        EXPECT_THAT(LoadBase(keyPem, leaf(name)), HasSubstr("common name")) << name;
    }
    EXPECT_THAT(LoadBase(keyPem, truncated), HasSubstr("base.pem: "));
    EXPECT_THAT(LoadBase(keyPem, leafPem + truncated), HasSubstr("base.pem: "));
    EXPECT_THAT(LoadBase(leafPem, leafPem), HasSubstr("base.key: "));
    EXPECT_THAT(LoadBase(PrivateKeyPem(rsa.key), rsa.Pem()), Not(IsEmpty()));
    EXPECT_EQ(Provision("base --key missing --chain base.pem"), 1);
    EXPECT_THAT(Read("errors"), HasSubstr("missing: No such file"));

    EXPECT_EQ(Show(), before);
}

TEST_F(ProvisionTest, OnlyRootsOfACaAreTakenAsRoot) {
    ASSERT_EQ(Provision("init"), 0);
    const auto loadRoot = [this](const std::string& pem) {
        Write("root.pem", pem);
        EXPECT_EQ(Provision("root root.pem"), 1);
        return Read("errors");
    };
    EXPECT_THAT(loadRoot(mFactory.leaf.Pem()), HasSubstr("is no CA"));
    EXPECT_THAT(loadRoot(mFactory.intermediate.Pem()), HasSubstr("is no root"));
    EXPECT_THAT(loadRoot(PemOf({mFactory.root, mFactory.leaf})), HasSubstr("is no CA"));
    EXPECT_THAT(loadRoot("no PEM at all"), HasSubstr("no PEM certificate"));
    EXPECT_THAT(Show(), IsEmpty());

    Write("root.pem", PemOf({mFactory.root, SelfSigned(CaTraits("Second Root"))}));
    EXPECT_EQ(Provision("root root.pem"), 0);
    EXPECT_THAT(Show(), HasSubstr("CN=Second Root"));
}

TEST_F(ProvisionTest, MissingStoresAndEntriesAreNamed) {
    EXPECT_EQ(Provision("show"), 1);
    EXPECT_THAT(Read("errors"), HasSubstr("store"));
    // A store that the service has made, and no factory.
    std::filesystem::create_directory(mDirectory.File("store"));
    Write("store/store.db", "");
    for (const char* open : {"store/store.db", "store"}) {
        ASSERT_EQ(::chmod(mDirectory.File(open).c_str(), 0777), 0);
        EXPECT_EQ(Provision("init"), 1);
        EXPECT_THAT(Read("errors"), HasSubstr(std::string(open) + ": store refused"));
        ASSERT_EQ(::chmod(mDirectory.File(open).c_str(), 0700), 0);
    }
    Write("root.pem", mFactory.root.Pem());
    EXPECT_EQ(Provision("root root.pem"), 1);
    EXPECT_THAT(Read("errors"), HasSubstr("never initialised: run 'init'"));
    ASSERT_EQ(Provision("init"), 0);
    EXPECT_EQ(Provision("remove NOTHING"), 1);
    EXPECT_THAT(Read("errors"), HasSubstr("NOTHING"));
    EXPECT_EQ(Provision("show --pem NOTHING"), 1);
    EXPECT_NE(Provision("nonsense"), 0);
    EXPECT_EQ(Provision("show --help"), 0);
    EXPECT_THAT(Read("output"), HasSubstr("fingerprint"));
}

TEST_F(ProvisionTest, AnEmptyKeyStorageIsNotTheFile) {
    for (const char* options : {"--tpm ''", "--pkcs11 '' --token unit --pin-file pin"}) {
        EXPECT_EQ(Provision(std::string("init ") + options), 1) << options;
        EXPECT_THAT(Read("errors"), HasSubstr("must have 1 to 1024 characters"));
        EXPECT_FALSE(std::filesystem::exists(mDirectory.File("store/wrapping.key")));
    }
}

TEST_F(ProvisionTest, AStoreWhoseKeysAreOutOfReachIsNotJudged) {
    using namespace orv::sec::crypto::test;
    SoftwareTpm tpm;
    const SoftwareToken token(mDirectory.File("pin"));
    const auto& [module, label, slot, pinFile, keyLabel] = token.Storage();
    const struct {
        std::string options;
        std::function<void()> takeAway;
        const char* reason;
    } cases[] = {
        {"--tpm " + tpm.Storage().tcti, [&] { tpm.Stop(); }, "cannot be reached"},
        {"--pkcs11 " + module + " --token '" + label + "' --pin-file " + pinFile,
         [&] { token.WritePin("1234"); }, "login refused"},
        // The next process must not spend the last attempts.
        {"", [] {}, "a wrong PIN was tried before"},
    };
    for (const auto& [options, takeAway, reason] : cases) {
        SCOPED_TRACE(reason);
        if (!options.empty()) {
            std::filesystem::remove_all(mDirectory.File("store"));
            ASSERT_EQ(Provision("init " + options), 0) << Read("errors");
            ASSERT_THAT(LoadBase(PrivateKeyPem(mFactory.leaf.key), mFactory.ChainPem()), IsEmpty());
            EXPECT_EQ(Provision("verify"), 4) << Read("output");
        }
        takeAway();
        EXPECT_EQ(Provision("status"), 1) << Read("output");
        EXPECT_THAT(Read("errors"), HasSubstr(reason));
        EXPECT_THAT(Show(), HasSubstr("ECU_BASE_CERT"));
    }
}

}  // namespace

}  // namespace provision
