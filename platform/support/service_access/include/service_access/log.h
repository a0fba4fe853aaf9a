#pragma once

#include <ara_log_host/library_log.h>

namespace service_access {

/// The lines of the service access layer.
inline const ara_log_host::LibraryLog& Log() {
    static const ara_log_host::LibraryLog log("WEXA", "Service access layer");
    return log;
}

}  // namespace service_access
