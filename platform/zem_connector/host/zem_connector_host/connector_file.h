#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <zem_connector_host/operation_settings.h>

#include <zem_connector/session_status.h>
#include <zem_connector/zem_service_controller_callback_if.h>

namespace zem_connector::host {

/// What the connector knows of one transaction type.
struct TransactionType {
    bool activated{true};
    ZemServiceControllerCallbackIf::SCConnectionState connectionState{
        ZemServiceControllerCallbackIf::SCConnectionState::kOnDemand};
};

/// Content of the file that tells the connector library how the vehicle's data link stands.
///
/// One JSON object (RFC 8259); every key may be missing and then stands for the default below:
///
///     {
///       "sessionStatus": "idle" | "starting" | "started" | "rejected",
///       "connectTimeoutMs": 10000,
///       "urlTimeoutMs": 5000,
///       "closeTimeoutMs": 5000,
///       "transactionTypes": {
///         "<id>": {
///           "activated": true,
///           "connectionState": "notAvailable" | "disconnected" | "onDemand" | "connected"
///         }
///       },
///       "invocationUrls": { "<operation id>": "<url>" },
///       "operations": {
///         "<operation id>": {
///           "tls": false | {
///             "trustAnchors": "<absolute path of a PEM file>",
///             "serverName": "<name or address in the certificate>",
///             "minimumVersion": "1.2" | "1.3"
///           },
///           "proxy": {
///             "type": "http" | "socks5", "host": "<name or address>", "port": 3128,
///             "user": "<name>", "password": "<text>"
///           }
///         }
///       }
///     }
///
/// An operation's entry must say "tls", a TLS object "trustAnchors", a proxy "type", "host" and
/// "port": a misspelt key must not take the protection away.
///
/// The file is watched: replacing it by rename and rewriting it in place both take effect at once.
struct ConnectorFile {
    /// A longer file is refused.
    static constexpr std::size_t kMaxSize = std::size_t{1024} * 1024;

    SessionStatus sessionStatus{SessionStatus::kStarted};
    /// Limit of one socket attempt, name look-up included; 1 ms to 10 minutes.
    std::chrono::milliseconds connectTimeout{10000};
    /// How long a URL query waits for a session before it fails; 0 ms to 10 minutes.
    std::chrono::milliseconds urlTimeout{5000};
    /// What a client sent over a protected connection before it closed may take so long to go out;
    /// 0 ms to 10 minutes.
    std::chrono::milliseconds closeTimeout{5000};
    std::map<std::string, TransactionType> transactionTypes;
    std::map<std::string, std::string> invocationUrls;
    /// By operation id; an operation without an entry is connected in clear and directly.
    std::map<std::string, OperationSettings> operations;

    /// The operations whose URL says https while their sockets are in clear: the entry protects,
    /// not the URL.
    std::vector<std::string> UnprotectedHttpsOperations() const;

    /// The file's text. All strings must be UTF-8; what is not becomes U+FFFD.
    std::string ToJson() const;

    /// Replaces the file at `path` by way of a temporary file beside it, so that a reader sees the
    /// old content or the new one. Others may read it, unless it holds a password. Throws
    /// std::system_error with the path; then the old file is as it was.
    void WriteAtomically(const std::string& path) const;
};

/// Reads a file's text into `file`; unknown keys are named in `warnings`. Throws
/// std::runtime_error, with `file` as it was, on text that is too long, no JSON, or has a value
/// of the wrong type or out of range.
void ParseConnectorFile(const std::string& text, ConnectorFile& file,
                        std::vector<std::string>& warnings);

}  // namespace zem_connector::host
