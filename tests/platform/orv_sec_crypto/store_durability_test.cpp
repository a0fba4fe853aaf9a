#include <csignal>
#include <functional>

#include <sys/prctl.h>
#include <sys/wait.h>

#include "custody/secret_memory.h"
#include "faulty_vfs/faulty_vfs.h"
#include "store_fixture.h"

namespace orv::sec::crypto::test {

namespace {

using store_faults::Fault;
using ::testing::AnyOf;
using ::testing::HasSubstr;

class StoreDurabilityTest : public OpenLibraryTest {
protected:
    static void SetUpTestSuite() { store_faults::Install(); }

    void Reopen() {
        cleanupCryptoLib();
        mProvider = initCryptoLib().GetObject();
        ASSERT_NE(mProvider, nullptr);
        mManager = mProvider->createTrustStoreManager().GetObject();
        mStore = mManager->lookupTrustStore("TIV").GetObject();
    }

    CryptoResultCode Attach(const std::string& id) {
        return mStore->storeCertificateForKeyPair(Key(id), ToBytes(CertificateFor(Key(id)).Pem()));
    }

    /// The accepted pair with its chain, or the pending one, and nothing else.
    void StartWith(const std::string& id, bool hasChain) {
        mStore->deleteKeyPair(Key("TIV"));
        mStore->deleteKeyPair(Key("TIV_CSR"));
        GeneratedKey(id);
        if (hasChain) {
            ASSERT_EQ(Attach(id), CryptoResultCode::kSuccess);
        }
    }

    /// All that the store holds; a key pair must open and a chain must be its own.
    std::string Contents() {
        std::string contents;
        for (const char* id : {"TIV", "TIV_CSR"}) {
            if (mStore->checkKeyId(Key(id)) == 0) {
                EXPECT_TRUE(Signature(Key(id))->sign(ToBytes("content")).IsSuccess());
                contents += std::string(id) + ToText(mStore->loadPublicKey(Key(id)).GetObject()) +
                            ToText(mStore->loadCertificateForKeyPair(Key(id)).GetObject());
            }
        }
        return contents + ToText(mStore->loadCertificate(Cert("ROOT")).GetObject());
    }
};

struct Operation {
    const char* name;
    const char* startsWith;
    bool hasChain;
    std::function<CryptoResultCode()> run;
};

TEST_F(StoreDurabilityTest, AFailingDiskEndsInTheStorageErrorAndLosesNothing) {
    const Operation operations[] = {
        {"generateKeyPair", "TIV", true,
         [&] { return mStore->generateKeyPair(Key("TIV_CSR"), store::KeyType::kEcP256); }},
        {"storeCertificateForKeyPair", "TIV_CSR", false, [&] { return Attach("TIV_CSR"); }},
        {"moveKeyPair", "TIV_CSR", true,
         [&] { return mStore->moveKeyPair(Key("TIV_CSR"), Key("TIV")); }},
        {"deleteKeyPair", "TIV", true, [&] { return mStore->deleteKeyPair(Key("TIV")); }},
        {"storeCertificate", "TIV", true,
         [&] { return mStore->storeCertificate(Cert("ROOT"), ToBytes(SelfSigned({}).Pem())); }},
    };
    for (const Fault fault : {Fault::kError, Fault::kDiskFull, Fault::kReadOnly}) {
        for (const Operation& operation : operations) {
            auto code = CryptoResultCode::kStorageError;
            StartWith(operation.startsWith, operation.hasChain);
            std::string before = Contents();
            for (int call = 1; code != CryptoResultCode::kSuccess; ++call) {
                SCOPED_TRACE(operation.name + std::to_string(call) + " fault " +
                             std::to_string(static_cast<int>(fault)));
                ASSERT_LT(call, 100);
                store_faults::Arm({fault, call, 0});
                code = operation.run();
                const int calls = store_faults::Disarm();
                ASSERT_THAT(code,
                            AnyOf(CryptoResultCode::kSuccess, CryptoResultCode::kStorageError));
                EXPECT_TRUE(call > 3 || code == CryptoResultCode::kStorageError);
                ASSERT_NO_FATAL_FAILURE(Reopen());
                // An error in the very last call, the sync of the emptied journal, comes too late
                // to undo what was done.
                const bool isLast = fault == Fault::kError && call > 3 && call == calls;
                if (code == CryptoResultCode::kStorageError && isLast) {
                    StartWith(operation.startsWith, operation.hasChain);
                    before = Contents();
                } else if (code == CryptoResultCode::kStorageError) {
                    EXPECT_EQ(Contents(), before);
                }
            }
        }
    }
}

TEST_F(StoreDurabilityTest, AReadOnlyStoreCanBeJudgedButNotChanged) {
    const ByteVector certificate = ToBytes(SelfSigned({}).Pem());
    StartWith("TIV", true);
    ASSERT_EQ(mStore->storeCertificate(Cert("ROOT"), certificate), CryptoResultCode::kSuccess);
    const std::string before = Contents();
    store_faults::Arm({Fault::kReadOnly, 1, 0});
    ASSERT_NO_FATAL_FAILURE(Reopen());
    EXPECT_EQ(Contents(), before);
    EXPECT_EQ(mStore->storeCertificate(Cert("ROOT"), certificate), CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kStorageError);
    store_faults::Disarm();
    EXPECT_EQ(Contents(), before);
}

TEST_F(StoreDurabilityTest, ASecondProcessIsToldUntilTheFirstOneIsGone) {
    cleanupCryptoLib();
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isOpen = initCryptoLib().IsSuccess();
        ::write(ready[1], isOpen ? "y" : "n", 1);
        ::pause();
    }
    char answer = 0;
    ASSERT_EQ(::read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');

    EXPECT_EQ(initCryptoLib().GetCode(), CryptoResultCode::kStorageError);
    EXPECT_THAT(Errors().back(), HasSubstr(mDirectory + ": the store is in use"));
    std::unique_ptr<StoreAdministration> administration;
    ASSERT_TRUE(StoreAdministration::Open(mDirectory, administration));
    std::vector<host::StoreEntry> entries;
    EXPECT_TRUE(administration->List(entries));
    const auto refused = administration->StoreCertificate("ROOT", SelfSigned({}).Pem());
    EXPECT_EQ(refused.status, AdministrationStatus::kStoreFailure);
    EXPECT_THAT(refused.message, HasSubstr("in use by another process"));

    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    EXPECT_TRUE(administration->StoreCertificate("ROOT", SelfSigned({}).Pem()));
    EXPECT_TRUE(initCryptoLib().IsSuccess());
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(StoreDurabilityTest, KeysStayOutOfCoreDumps) {
    EXPECT_EQ(::prctl(PR_GET_DUMPABLE), 0);
    ::prctl(PR_SET_DUMPABLE, 1);
    ::setenv("ORV_CRYPTO_CORE_DUMPS", "1", 1);
    Reopen();
    EXPECT_EQ(::prctl(PR_GET_DUMPABLE), 1);
    ::unsetenv("ORV_CRYPTO_CORE_DUMPS");

    const SecretMemory memory(32);
    const auto address = reinterpret_cast<std::uintptr_t>(memory.Data());
    std::ifstream mappings("/proc/self/smaps");
    std::string line;
    bool isOurs = false;
    for (; std::getline(mappings, line) && !(isOurs && line.rfind("VmFlags", 0) == 0);) {
        const auto dash = line.find('-');
        if (dash != std::string::npos && dash < line.find(' ')) {
            isOurs = std::stoull(line, nullptr, 16) <= address &&
                     address < std::stoull(line.substr(dash + 1), nullptr, 16);
        }
    }
    EXPECT_THAT(line, HasSubstr(" dd"));
}

TEST_F(StoreDurabilityTest, TwoProcessesWriteAtOnce) {
    constexpr int kRounds = 20;
    const std::string certificate = SelfSigned({}).Pem();
    cleanupCryptoLib();
    const pid_t child = ::fork();
    if (child == 0) {
        std::unique_ptr<StoreAdministration> administration;
        bool stored =
            static_cast<bool>(StoreAdministration::CreateOrOpen(mDirectory, administration));
        for (int round = 0; stored && round < kRounds; ++round) {
            stored = static_cast<bool>(
                administration->StoreCertificate("CHILD" + std::to_string(round), certificate));
        }
        ::_exit(stored ? 0 : 1);
    }
    std::unique_ptr<StoreAdministration> administration = Provision();
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_TRUE(
            administration->StoreCertificate("PARENT" + std::to_string(round), certificate));
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    std::vector<host::StoreEntry> entries;
    ASSERT_TRUE(administration->List(entries));
    EXPECT_EQ(entries.size(), 2U * kRounds);
}

TEST_F(StoreDurabilityTest, TwoConnectionsOfOneProcessSeeEachOther) {
    const auto administration = Provision();
    const auto koru = mManager->lookupForKORUStore().GetObject();
    const CertHandle root = koru->makeCertId("ROOT").GetObject();
    EXPECT_EQ(koru->loadCertificate(root).GetCode(), CryptoResultCode::kNotFound);

    const std::string certificate = SelfSigned({}).Pem();
    ASSERT_TRUE(administration->StoreCertificate("ROOT", certificate));
    EXPECT_EQ(ToText(koru->loadCertificate(root).GetObject()), certificate);
    GeneratedKey("TIV_CSR");
    EXPECT_TRUE(administration->Remove("TIV", "TIV_CSR", host::EntryKind::kKeyPair));
    EXPECT_EQ(mStore->checkKeyId(Key("TIV_CSR")), 4);
}

}  // namespace

}  // namespace orv::sec::crypto::test
