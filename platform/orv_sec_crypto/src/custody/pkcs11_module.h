#pragma once

#include <map>
#include <mutex>
#include <string>

#include <p11-kit/pkcs11.h>
#include <sys/types.h>

namespace orv::sec::crypto {

/// A PKCS #11 module (OASIS PKCS #11 2.40), a shared library that is loaded and initialised at its
/// first use. It stays so for all users in this process and is finalised when the process ends,
/// ahead of the libraries that it uses itself; calls after that, and calls in a child of a fork,
/// are refused. All failures are `CryptoError` with `kStorageError`.
class Pkcs11Module {
public:
    /// The one of this path. Any thread.
    static Pkcs11Module& Load(const std::string& path);

    /// Taken by a user for as long as its calls belong together.
    std::mutex& Mutex() { return mMutex; }

    /// The functions, for the holder of the mutex.
    CK_FUNCTION_LIST& Functions() const;
    /// False once `Functions` would refuse.
    bool IsUsable() const;

    /// Remembers the PIN that a token has refused last in this process, so that nobody tries it
    /// again: by the version of its file, empty for none. For the holder of the mutex.
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
