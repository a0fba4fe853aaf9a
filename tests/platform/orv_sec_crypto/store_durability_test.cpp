#include <csignal>

#include <sys/prctl.h>
#include <sys/wait.h>

#include "client_store/client_store.h"
#include "custody/secret_memory.h"
#include "faulty_vfs/faulty_vfs.h"
#include "store_fixture.h"
#include "testing/waiting.h"

namespace orv::sec::crypto::test {

namespace {

using store_faults::Fault;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using testing_support::ClientStore;
using testing_support::Fits;
using testing_support::Picture;

class StoreDurabilityTest : public OpenLibraryTest {
protected:
    static void SetUpTestSuite() { store_faults::Install(); }

    ClientStore Client() { return {*mProvider, mBackend}; }

    const testing_support::Family mBackend;
};

TEST_F(StoreDurabilityTest, AFailingDiskEndsInTheStorageErrorAndLosesNothing) {
    for (const Fault fault : {Fault::kError, Fault::kDiskFull, Fault::kReadOnly}) {
        for (const auto& operation : testing_support::kStoreOperations) {
            auto code = CryptoResultCode::kStorageError;
            ClientStore store = Client();
            const auto begin = [&] {
                store.Reset();
                operation.begin(store);
                return store.Look();
            };
            Picture before = begin();
            for (int call = 1; code != CryptoResultCode::kSuccess; ++call) {
                SCOPED_TRACE(operation.name + std::to_string(call) + " fault " +
                             std::to_string(static_cast<int>(fault)));
                ASSERT_LT(call, 100);
                store_faults::Arm({fault, call, 0});
                code = operation.run(store);
                const int calls = store_faults::Disarm();
                ASSERT_THAT(code,
                            AnyOf(CryptoResultCode::kSuccess, CryptoResultCode::kStorageError));
                EXPECT_TRUE(call > 3 || code == CryptoResultCode::kStorageError);
                ASSERT_NO_FATAL_FAILURE(Reopen());
                store.mStore = mStore;
                Picture after = before;
                operation.expect(store, after);
                // An error in the very last call, the sync of the emptied journal, comes too late
                // to undo what was done.
                const bool mayBeDone = fault == Fault::kError && call > 3 && call == calls;
                const Picture now = store.Look();
                if (code == CryptoResultCode::kSuccess) {
                    EXPECT_PRED2(Fits, now, after);
                } else if (mayBeDone && Fits(now, after)) {
                    before = begin();
                } else {
                    EXPECT_EQ(now, before);
                }
            }
        }
    }
}

TEST_F(StoreDurabilityTest, AReadOnlyStoreCanBeJudgedButNotChanged) {
    const ByteVector bytes = ToBytes(SelfSigned({}).Pem());
    Client().Reset();
    ASSERT_EQ(mStore->storeCertificate(Cert("TIV_TMP"), bytes), CryptoResultCode::kSuccess);
    const Picture before = Client().Look();
    store_faults::Arm({Fault::kReadOnly, 1, 0});
    ASSERT_NO_FATAL_FAILURE(Reopen());
    EXPECT_EQ(Client().Look(), before);
    EXPECT_EQ(mStore->storeCertificate(Cert("TIV_TMP"), bytes), CryptoResultCode::kSuccess);
    EXPECT_EQ(mStore->deleteKeyPair(Key("TIV")), CryptoResultCode::kStorageError);
    store_faults::Disarm();
    EXPECT_EQ(Client().Look(), before);
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
    // On a slow disk the store may be in use for longer than an operation waits for it.
    const auto store = [](StoreAdministration& administration, const std::string& id,
                          const std::string& pem) {
        return testing_support::WaitUntil(
            [&] { return static_cast<bool>(administration.StoreCertificate(id, pem)); });
    };
    const std::string certificate = SelfSigned({}).Pem();
    cleanupCryptoLib();
    const pid_t child = ::fork();
    if (child == 0) {
        std::unique_ptr<StoreAdministration> administration;
        bool stored =
            static_cast<bool>(StoreAdministration::CreateOrOpen(mDirectory, administration));
        for (int round = 0; stored && round < kRounds; ++round) {
            stored = store(*administration, "CHILD" + std::to_string(round), certificate);
        }
        ::_exit(stored ? 0 : 1);
    }
    std::unique_ptr<StoreAdministration> administration = Provision();
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_TRUE(store(*administration, "PARENT" + std::to_string(round), certificate));
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
