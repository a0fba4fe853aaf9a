#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <posix/unique_fd.h>

namespace simulator::backend {

/// What the backend saw of one request and what it did. Text is as the peer sent it.
struct JournalEntry {
    std::chrono::system_clock::time_point time;
    /// From the connection to this entry.
    std::chrono::microseconds duration{0};
    std::string remote;
    std::string method;
    std::string target;
    std::string mediaType;
    std::string accept;
    /// The final HTTP status; 0 when none was sent.
    unsigned status = 0;
    /// "issued"; "refused"; "closed" or "silent", as the scenario wanted; "aborted" when the peer
    /// or the time limit ended it.
    std::string outcome;
    std::string reason;
    std::string transactionId;
    /// Without a value when no request message was read.
    std::optional<std::int32_t> activationReason;
    std::string operationTypeId;
    std::string diagnosticAddress;
    std::string hwVersion;
    std::string swVersion;
    std::string partNumber;
    /// Of the container's signer.
    std::string vin;
    std::string container;
    /// In PEM.
    std::string csr;
    /// In PEM.
    std::string issuedChain;
    std::string scenario;
};

/// An entry as one line of JSON with its line end. Bytes that are not UTF-8 are replaced.
std::string ToJsonLine(const JournalEntry& entry);

/// Appends entries to a file. Each is in the file once `Write` returns. One thread at a time.
class Journal {
public:
    /// No file with an empty path. `std::system_error` when the file cannot be opened.
    explicit Journal(const std::string& path);

    /// `std::system_error` when the file cannot be written.
    void Write(const JournalEntry& entry);

private:
    posix::UniqueFd mFile;
};

}  // namespace simulator::backend
