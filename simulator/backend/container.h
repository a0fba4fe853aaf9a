#pragma once

#include <chrono>
#include <string>

#include <openssl_support/openssl_ptr.h>

namespace simulator::backend {

/// A verified container.
struct ContainerContent {
    std::string payload;
    openssl_support::X509Ptr signer;
};

/// Opens a signed container: CMS SignedData (RFC 5652) in PEM with attached content and exactly one
/// signature, by SHA-256 or a longer hash of its family; the signer's certificate must
/// chain to `factoryRoot` at the time `now`. Throws `Refusal` if it is malformed (400) or does not
/// verify (403).
ContainerContent OpenContainer(const std::string& pem, X509& factoryRoot,
                               std::chrono::system_clock::time_point now);

}  // namespace simulator::backend
