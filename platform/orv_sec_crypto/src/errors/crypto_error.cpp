#include "errors/crypto_error.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <openssl/err.h>

#include "errors/crypto_log.h"

namespace orv::sec::crypto {

namespace {

bool IsOperatorsConcern(common::CryptoResultCode code) {
    switch (code) {
        case common::CryptoResultCode::kFailure:
        case common::CryptoResultCode::kStorageError:
        case common::CryptoResultCode::kIntegrityError:
        case common::CryptoResultCode::kOutOfResources:
            return true;
        default:
            return false;
    }
}

}  // namespace

void ReportError(const char* operation, const CryptoError& error) {
    const std::string line = std::string(operation) + ": " + error.what();
    if (IsOperatorsConcern(error.Code())) {
        Log().Error(line);
        return;
    }
    Log().Debug(line);
}

CryptoError SystemError(const std::string& path, const std::string& what) {
    return CryptoError(common::CryptoResultCode::kStorageError,
                       path + ": " + what + ": " + std::generic_category().message(errno));
}

CryptoError OpenSslError(const std::string& what) {
    std::string message = what;
    const unsigned long code = ERR_peek_last_error();
    if (code != 0) {
        std::array<char, 256> reason{};
        ERR_error_string_n(code, reason.data(), reason.size());
        message += std::string(": ") + reason.data();
    }
    ForgetOpenSslErrors();
    return CryptoError(common::CryptoResultCode::kFailure, message);
}

void ForgetOpenSslErrors() {
    ERR_clear_error();
}

}  // namespace orv::sec::crypto
