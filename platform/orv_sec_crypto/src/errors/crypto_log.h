#pragma once

#include <ara_log_host/library_log.h>

namespace orv::sec::crypto {

/// The library's own lines. None ever holds key material.
inline const ara_log_host::LibraryLog& Log() {
    static const ara_log_host::LibraryLog log("CRYP", "Crypto library");
    return log;
}

}  // namespace orv::sec::crypto
