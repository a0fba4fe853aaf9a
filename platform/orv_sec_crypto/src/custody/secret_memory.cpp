#include "custody/secret_memory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include <openssl/crypto.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include "errors/crypto_error.h"
#include "errors/crypto_log.h"

namespace orv::sec::crypto {

namespace {

constexpr const char* kCoreDumpsVariable = "ORV_CRYPTO_CORE_DUMPS";

}  // namespace

void KeepOutOfCoreDumps() {
    const char* wanted = std::getenv(kCoreDumpsVariable);
    if (wanted != nullptr && std::string(wanted) == "1") {
        Log().Warn(std::string(kCoreDumpsVariable) + " is set: a core dump may hold keys");
        return;
    }
    if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) {
        Log().Warn("core dumps stay possible: " + std::generic_category().message(errno));
    }
}

SecretMemory::SecretMemory(std::size_t size) : mSize(size) {
    void* const page =
        ::mmap(nullptr, mSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        throw CryptoError(common::CryptoResultCode::kOutOfResources, "no memory for a key");
    }
    mBytes = static_cast<std::uint8_t*>(page);
    if (::mlock(page, mSize) != 0) {
        Log().Warn("the wrapping key may be swapped: " + std::generic_category().message(errno));
    }
    ::madvise(page, mSize, MADV_DONTDUMP);
}

SecretMemory::~SecretMemory() {
    OPENSSL_cleanse(mBytes, mSize);
    ::munmap(mBytes, mSize);
}

}  // namespace orv::sec::crypto
