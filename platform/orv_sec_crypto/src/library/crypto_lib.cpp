#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <orv/sec/crypto/crypto_lib.h>

#include "custody/secret_memory.h"
#include "errors/crypto_error.h"
#include "errors/crypto_log.h"
#include "files/store_directory.h"
#include "library/crypto_service_provider.h"
#include "library/library_contents.h"
#include "store/store_database.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

// The caller may clean up from the destructor of a static object, when OpenSSL has cleaned up
// already. So the open library holds no OpenSSL object and cleanup calls nothing of OpenSSL that
// needs its state; and this record itself is never destroyed.
struct OpenLibrary {
    std::mutex mutex;
    // Held as long as the database is open, so that no other process writes between two operations.
    std::shared_ptr<StoreLock> lock;
    std::shared_ptr<StoreDatabase> database;
    // What the next opening takes instead of the store in the directory; usually null.
    std::shared_ptr<StoreDatabase> provided;
};

OpenLibrary& Instance() {
    static auto* instance = new OpenLibrary();
    return *instance;
}

void OpenStore(OpenLibrary& library, const std::string& directory) {
    try {
        auto lock = StoreLock::Acquire(directory);
        auto database =
            std::make_shared<StoreDatabase>(directory, StoreDatabase::OpenMode::kCreateUnlessLost);
        if (!database->HasCustody()) {
            Log().Warn(directory + ": no wrapping key yet, no key pair can be made");
        }
        library.lock = std::move(lock);
        library.database = std::move(database);
    } catch (const CryptoError& error) {
        throw CryptoError(error.Code(), std::string("store cannot be opened: ") + error.what());
    }
}

void CheckNotOpen(const OpenLibrary& library) {
    if (library.database != nullptr) {
        throw CryptoError(CryptoResultCode::kInvalidState, "the library is open already");
    }
}

}  // namespace

void ProvideLibraryContents(std::shared_ptr<StoreDatabase> contents) {
    OpenLibrary& library = Instance();
    const std::lock_guard<std::mutex> lock(library.mutex);
    CheckNotOpen(library);
    library.provided = std::move(contents);
}

CryptoResult<std::shared_ptr<ICryptoServiceProvider>> initCryptoLib() {
    return RunForResult<std::shared_ptr<ICryptoServiceProvider>>("initCryptoLib", [] {
        OpenLibrary& library = Instance();
        const std::lock_guard<std::mutex> lock(library.mutex);
        CheckNotOpen(library);
        KeepOutOfCoreDumps();
        if (library.provided != nullptr) {
            library.database = std::move(library.provided);
        } else {
            OpenStore(library, DefaultStoreDirectory());
        }
        return std::make_shared<CryptoServiceProvider>(library.database);
    });
}

CryptoResultCode cleanupCryptoLib() {
    OpenLibrary& library = Instance();
    const std::lock_guard<std::mutex> lock(library.mutex);
    if (library.database == nullptr) {
        return CryptoResultCode::kInvalidState;
    }
    library.database->Close();
    library.database.reset();
    library.lock.reset();
    return CryptoResultCode::kSuccess;
}

}  // namespace orv::sec::crypto
