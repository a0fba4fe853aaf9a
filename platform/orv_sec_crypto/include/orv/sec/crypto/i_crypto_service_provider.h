#pragma once

#include <memory>

#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/crypto/operation/i_certificate_handler.h>
#include <orv/sec/crypto/operation/i_digital_signature.h>
#include <orv/sec/crypto/operation/i_trust_store_manager.h>

namespace orv::sec::crypto {

/// The root of the library's objects; `initCryptoLib` returns it. Any thread may call it. The
/// caller shares ownership of the objects that it makes, which may outlive it; all operations fail
/// with `kInvalidState` once the library is cleaned up. None throws except for lack of memory.
class ICryptoServiceProvider {
public:
    virtual ~ICryptoServiceProvider() = default;

    /// Binds a key to a signature scheme. `kInvalidArgument` for a null handle, `kUnsupported` for
    /// another selector, `kNotFound` when the handle names neither a key pair nor a certificate.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<operation::IDigitalSignature>>
    createDigitalSignature(const operation::DigitalSignatureParams& params) = 0;

    /// Access to all stores of the unit.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<operation::ITrustStoreManager>>
    createTrustStoreManager() = 0;

    /// Work with certificates that are in no store.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<operation::ICertificateHandler>>
    createCertificateHandler() = 0;
};

}  // namespace orv::sec::crypto
