#pragma once

#include <ara_log_host/library_log.h>

namespace zem_connector {

/// The library's own lines, led by its name.
inline const ara_log_host::LibraryLog& Log() {
    static const ara_log_host::LibraryLog log("ZEMC", "Connector to the backend link",
                                              "ZemConnector: ");
    return log;
}

}  // namespace zem_connector
