#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <zem_connector/session_status.h>
#include <zem_connector/zem_service_controller_callback_if.h>
#include <zem_connector_host/operation_settings.h>

namespace zem_connector::host {

/// State of one transaction type.
struct TransactionType {
    bool activated{true};
    ZemServiceControllerCallbackIf::SCConnectionState connectionState{
        ZemServiceControllerCallbackIf::SCConnectionState::kOnDemand};
};

/// Content of the file that gives the connector library the state of the vehicle's data link.
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
/// An operation's entry must have "tls", a TLS object "trustAnchors", a proxy "type", "host" and
/// "port": a misspelt key must not disable TLS.
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
    /// Time limit for flushing what a client had sent over TLS before it closed; 0 ms to 10
    /// minutes.
    std::chrono::milliseconds closeTimeout{5000};
    std::map<std::string, TransactionType> transactionTypes;
    std::map<std::string, std::string> invocationUrls;
    /// By operation id; an operation without an entry is connected directly, without TLS.
    std::map<std::string, OperationSettings> operations;

    /// The operations whose URL has the scheme https while their sockets have no TLS, which only
    /// the entry enables.
    std::vector<std::string> UnprotectedHttpsOperations() const;

    /// The file's text. Bytes that are not UTF-8 are replaced by U+FFFD.
    std::string ToJson() const;

    /// Replaces the file at `path` atomically, mode 0644, or 0600 if it holds a password. Throws
    /// std::system_error with the path; the old file is then unchanged.
    void WriteAtomically(const std::string& path) const;
};

/// Parses a file's text into `file`; unknown keys are named in `warnings`. Throws
/// std::runtime_error, and leaves `file` unchanged, if the text is too long or no JSON, or a value
/// has the wrong type or is out of range.
void ParseConnectorFile(const std::string& text, ConnectorFile& file,
                        std::vector<std::string>& warnings);

}  // namespace zem_connector::host
