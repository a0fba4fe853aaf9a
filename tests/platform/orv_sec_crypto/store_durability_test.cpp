#include <cerrno>
#include <functional>

#include <sqlite3.h>
#include <sys/wait.h>

#include "store_fixture.h"

namespace orv::sec::crypto::test {

namespace {

constexpr int kKilled = 42;

enum class Fault { kFail, kKill };

// What SQLite's own test interface puts in the place of the system calls that change a file: the
// chosen one writes half of its bytes and then ends the process, or fails.
int gCallsUntilFault = 0;
Fault gFault = Fault::kFail;

bool IsFaultDue() {
    return --gCallsUntilFault == 0;
}

int EndWithFault() {
    if (gFault == Fault::kKill) {
        ::_exit(kKilled);
    }
    errno = EIO;
    return -1;
}

ssize_t FaultyPwrite(int descriptor, const void* bytes, std::size_t size, off_t offset) {
    if (!IsFaultDue()) {
        return ::pwrite(descriptor, bytes, size, offset);
    }
    if (::pwrite(descriptor, bytes, size / 2, offset) < 0) {
        return -1;
    }
    return EndWithFault();
}

int FaultyTruncate(int descriptor, off_t size) {
    return IsFaultDue() ? EndWithFault() : ::ftruncate(descriptor, size);
}

template <typename Function>
void Replace(const char* name, Function function) {
    sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
    vfs->xSetSystemCall(vfs, name, reinterpret_cast<sqlite3_syscall_ptr>(function));
}

void ArmFault(int call, Fault fault) {
    gCallsUntilFault = call;
    gFault = fault;
    Replace("pwrite", FaultyPwrite);
    Replace("pwrite64", FaultyPwrite);
    Replace("ftruncate", FaultyTruncate);
}

void DisarmFault() {
    sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
    vfs->xSetSystemCall(vfs, nullptr, nullptr);
}

int RunInChild(const std::function<int()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(work());
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class StoreDurabilityTest : public OpenLibraryTest {
protected:
    void SetUp() override {
        OpenLibraryTest::SetUp();
        GeneratedKey("TIV_CSR");
        mChain = ToBytes(CertificateFor(Key("TIV_CSR")).Pem());
        ASSERT_EQ(mStore->storeCertificateForKeyPair(Key("TIV_CSR"), mChain),
                  CryptoResultCode::kSuccess);
    }

    /// Where the one key pair is; fails unless it is whole and in exactly one place.
    std::string FindWholeKeyPair() {
        const bool atSource = mStore->checkKeyId(Key("TIV_CSR")) == 0;
        const bool atDestination = mStore->checkKeyId(Key("TIV")) == 0;
        EXPECT_NE(atSource, atDestination);
        std::string place = atSource ? "TIV_CSR" : "TIV";
        EXPECT_EQ(mStore->loadCertificateForKeyPair(Key(place)).GetObject(), mChain);
        EXPECT_TRUE(Signature(Key(place))->sign(ToBytes("content")).IsSuccess());
        return place;
    }

    int MoveWithFault(int call, Fault fault) {
        // Opened anew by the child: a connection must not cross a fork.
        cleanupCryptoLib();
        const int status = RunInChild([&] {
            const auto manager = initCryptoLib().GetObject()->createTrustStoreManager().GetObject();
            const auto store = manager->lookupTrustStore("TIV").GetObject();
            const KeyHandle source = store->makeKeyId("TIV_CSR").GetObject();
            const KeyHandle destination = store->makeKeyId("TIV").GetObject();
            ArmFault(call, fault);
            const auto code = store->moveKeyPair(source, destination);
            DisarmFault();
            return static_cast<int>(code);
        });
        mProvider = initCryptoLib().GetObject();
        mManager = mProvider->createTrustStoreManager().GetObject();
        mStore = mManager->lookupTrustStore("TIV").GetObject();
        return status;
    }

    ByteVector mChain;
};

TEST_F(StoreDurabilityTest, ProcessKilledAtAnyWriteLeavesTheKeyPairWholeInOnePlace) {
    int call = 1;
    for (; FindWholeKeyPair() == "TIV_CSR" && call < 100; ++call) {
        SCOPED_TRACE(call);
        const int status = MoveWithFault(call, Fault::kKill);
        ASSERT_TRUE(status == kKilled || status == 0) << status;
    }
    EXPECT_GT(call, 4);
    EXPECT_EQ(FindWholeKeyPair(), "TIV");
}

TEST_F(StoreDurabilityTest, FailedWriteIsReportedAndLosesNothing) {
    int failures = 0;
    int status = -1;
    for (int call = 1; status != 0 && call < 100; ++call) {
        SCOPED_TRACE(call);
        status = MoveWithFault(call, Fault::kFail);
        if (status != 0) {
            EXPECT_EQ(status, static_cast<int>(CryptoResultCode::kStorageError));
            EXPECT_EQ(FindWholeKeyPair(), "TIV_CSR");
            ++failures;
        }
    }
    EXPECT_GT(failures, 3);
    EXPECT_EQ(FindWholeKeyPair(), "TIV");
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
    EXPECT_EQ(entries.size(), 1U + 2U * kRounds);
}

TEST_F(StoreDurabilityTest, TwoConnectionsOfOneProcessSeeEachOther) {
    const auto administration = Provision();
    const auto koru = mManager->lookupForKORUStore().GetObject();
    const CertHandle root = koru->makeCertId("ROOT").GetObject();
    EXPECT_EQ(koru->loadCertificate(root).GetCode(), CryptoResultCode::kNotFound);

    const std::string certificate = SelfSigned({}).Pem();
    ASSERT_TRUE(administration->StoreCertificate("ROOT", certificate));
    EXPECT_EQ(ToText(koru->loadCertificate(root).GetObject()), certificate);
    EXPECT_TRUE(administration->Remove("TIV", "TIV_CSR", host::EntryKind::kKeyPair));
    EXPECT_EQ(mStore->checkKeyId(Key("TIV_CSR")), 4);
}

}  // namespace

}  // namespace orv::sec::crypto::test
