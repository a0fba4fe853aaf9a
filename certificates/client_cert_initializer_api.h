#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "certificates/mock_tee_error.h"

namespace orv::tee {

/// The client's view of the secure store: two stores behind plain values. The client store "TIV"
/// holds the client certificate and its keys, the key-management store what the factory
/// provisioned. Ids are those of certificates/certificate_ids.h; certificates are raw bytes in the
/// crypto library's format.
///
/// Dispatcher thread only, except for `get_instance`. Operations report a failure by an empty
/// result or an error number and log its reason; none throws.
class ClientCertInitializerAPI {
public:
    virtual ~ClientCertInitializerAPI() = default;

    /// The one instance of the process. Throws `std::runtime_error` when the crypto library or one
    /// of its stores is unavailable; the next call tries again.
    static std::shared_ptr<ClientCertInitializerAPI> get_instance();

    /// Makes a key pair in the client store, in the place of the one with that id.
    virtual MockTeeError generate_private_key(std::string certId) = 0;

    /// A signing request for the pending key pair ("TIV_CSR", no other id is taken); `subject` is
    /// the common name and the whole of the subject.
    virtual std::vector<std::uint8_t> generate_csr(std::string subject, std::string certId) = 0;

    /// A signature over non-empty `content` with the accepted key ("TIV", no other id is taken).
    /// `algorithm` is ignored: the scheme is always EMSA1(SHA-256).
    virtual std::vector<std::uint8_t> generate_signature(std::string certId,
                                                         std::vector<std::uint8_t> content,
                                                         std::string algorithm) = 0;

    /// The public half of the pending ("TIV_CSR") or the accepted ("TIV") key pair.
    virtual std::string get_public_key(std::string certId) = 0;

    /// The chain of the client certificate ("TIV") or of the unit's base certificate ("BASE").
    virtual std::string get_client_cert(std::string certId) = 0;

    /// Attaches a chain to the source key pair and moves both to the destination id, in the place
    /// of what is there. An empty chain deletes the destination key pair instead; that there is
    /// none is no failure then.
    virtual MockTeeError set_client_cert_and_move_key(std::string certificateChain,
                                                      std::string srcKeyId,
                                                      std::string destKeyId) = 0;

    /// The root that verifies certificates from the backend ("KORU", no other id is taken).
    virtual std::string get_root_cert_bundle(std::string trustStoreId) = 0;

    /// Always empty; the VIN is in the base certificate.
    virtual std::string get_koru_vin() = 0;
};

}  // namespace orv::tee
