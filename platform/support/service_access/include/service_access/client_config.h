#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace service_access {

/// How a client reaches the service access layer: the contents of a ClientConfig.json, one JSON
/// object with the keys given below. Only "socketPath" must be there; any other key than these is
/// an error.
struct ClientConfig {
    /// "socketPath": absolute, at most 107 bytes.
    std::string socketPath;
    /// "connectTimeLimitMs", 1 to 60000: for the opening handshake.
    std::chrono::milliseconds connectTimeLimit{2000};
    /// "queryTimeLimitMs", 1 to 60000: for one query, from the call to the whole answer.
    std::chrono::milliseconds queryTimeLimit{5000};
    /// "subscribeTimeLimitMs", 1 to 60000: until a subscription is acknowledged.
    std::chrono::milliseconds subscribeTimeLimit{2000};
    /// "pingIntervalMs", 1 to 60000: of silence before a ping; a connection is given up after
    /// twice that time without a sign of life.
    std::chrono::milliseconds pingInterval{5000};
    /// "reconnectInitialMs", 1 to 60000: the first wait before connecting again; doubles from
    /// failure to failure.
    std::chrono::milliseconds reconnectInitial{100};
    /// "reconnectMaxMs", 1 to 60000 and not below the first wait: where the doubling ends.
    std::chrono::milliseconds reconnectMax{2000};
    /// "maxMessageBytes", 256 to 1048576: the longest message or answer that is read.
    std::size_t maxMessageBytes{65536};
};

/// `path`, unless the environment variable WEXA_CLIENT_CONFIG names another file.
std::string ResolveClientConfigPath(const std::string& path);

/// Reads the file at exactly `path`. Throws std::runtime_error with path and reason if it is not
/// there, longer than 64 KiB, or not as described above.
ClientConfig LoadClientConfig(const std::string& path);

}  // namespace service_access
