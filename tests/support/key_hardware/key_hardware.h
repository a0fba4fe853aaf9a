#pragma once

#include <string>

#include <sys/types.h>

#include "orv_sec_crypto/key_storage.h"
#include "testing/temporary_directory.h"

namespace orv::sec::crypto::test {

/// A TPM 2.0 in a process of its own (swtpm), reached by a Unix socket.
class SoftwareTpm {
public:
    SoftwareTpm();
    ~SoftwareTpm();
    SoftwareTpm(const SoftwareTpm&) = delete;
    SoftwareTpm& operator=(const SoftwareTpm&) = delete;

    host::TpmKeyStorage Storage() const;
    void Start();
    void Stop();
    /// Another TPM answers from here on, as if this one had been cleared.
    void Replace();

private:
    testing_support::TemporaryDirectory mDirectory;
    pid_t mProcess = -1;
};

/// A new token of SoftHSM. The module keeps them all in one place for as long as the process lives.
class SoftwareToken {
public:
    static constexpr const char* kPin = "4321";

    /// Writes the PIN to `pinFile`.
    explicit SoftwareToken(const std::string& pinFile);

    const host::TokenKeyStorage& Storage() const { return mStorage; }
    void WritePin(const std::string& pin, mode_t mode = 0400) const;

    /// Where SoftHSM keeps its tokens.
    static std::string Directory();

private:
    host::TokenKeyStorage mStorage;
};

}  // namespace orv::sec::crypto::test
