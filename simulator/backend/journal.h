#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <posix/unique_fd.h>

namespace simulator::backend {

/// Record of one request and its outcome. Texts are as the peer sent them.
struct JournalEntry {
    std::chrono::system_clock::time_point time;
    /// From accepting the connection to this entry.
    std::chrono::microseconds duration{0};
    std::string remote;
    std::string method;
    std::string target;
    std::string mediaType;
    std::string accept;
    /// The final HTTP status; 0 when none was sent.
    unsigned status = 0;
    /// "issued"; "refused"; "closed" or "silent", as the scenario demands; "aborted" if the peer or
    /// the time limit ended it.
    std::string outcome;
    std::string reason;
    std::string transactionId;
    /// Without a value if no request message was read.
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
    /// Without a file if the path is empty. Throws std::system_error if the file can't be opened.
    explicit Journal(const std::string& path);

    /// Throws std::system_error if the file can't be written.
    void Write(const JournalEntry& entry);

private:
    posix::UniqueFd mFile;
};

}  // namespace simulator::backend
