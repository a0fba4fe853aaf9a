#pragma once

#include <map>
#include <mutex>
#include <string>

#include <p11-kit/pkcs11.h>
#include <sys/types.h>

namespace orv::sec::crypto {

/// A PKCS #11 module (OASIS PKCS #11 2.40), a shared library that is loaded and initialised at its
/// first use. It remains loaded for all users in this process and is finalised at process exit,
/// ahead of the libraries that it uses itself; calls after that, and calls in a child of a fork,
/// are refused. All failures are `CryptoError` with `kStorageError`.
class Pkcs11Module {
public:
    /// The module at this path. Any thread.
    static Pkcs11Module& Load(const std::string& path);

    /// Locked by a user for each sequence of calls that belong together.
    std::mutex& Mutex() { return mMutex; }

    /// The module's functions; the caller holds the mutex.
    CK_FUNCTION_LIST& Functions() const;
    /// False once `Functions` would throw.
    bool IsUsable() const;

    /// The PIN that a token has refused last in this process, which is not tried again: the version
    /// of its file, empty for none. The caller holds the mutex.
    std::string& RefusedPin(const std::string& serialNumber) { return mRefusedPins[serialNumber]; }

private:
    explicit Pkcs11Module(const std::string& path);

    void Initialize();
    void Finalize();
    static void FinalizeAll();

    const std::string mPath;
    std::mutex mMutex;
    CK_FUNCTION_LIST* mFunctions = nullptr;
    const pid_t mOwner;
    bool mIsFinalizedByUs = false;
    bool mHasEnded = false;
    std::map<std::string, std::string> mRefusedPins;
};

/// "CKR_PIN_INCORRECT" for the usual ones, else the number.
std::string DescribeReturnValue(CK_RV value);

}  // namespace orv::sec::crypto
