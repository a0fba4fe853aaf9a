#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <orv/sec/crypto/operation/i_certificate_handler.h>

#include "errors/crypto_error.h"
#include "store/store_database.h"

namespace orv::sec::crypto {

/// Certificates are taken as PEM or DER and given as DER. The store is asked for nothing but
/// whether the library is still open.
class CertificateHandler final : public operation::ICertificateHandler {
public:
    explicit CertificateHandler(std::shared_ptr<const StoreDatabase> database);

    common::CryptoResultCode verifyCertificate(const common::ByteVector& certificate,
                                               const common::ByteVector& issuer) override;
    CryptoResult<std::vector<common::ByteVector>> splitCertificatesChain(
        const common::ByteVector& bytes) override;
    CryptoResult<common::ByteVector> pemToDer(const common::ByteVector& bytes,
                                              const operation::PemFormat& format) override;
    CryptoResult<std::string> getCertificateIssuerCommonName(
        const common::ByteVector& bytes) override;
    CryptoResult<std::int64_t> getCertificateNotBeforeDate(
        const common::ByteVector& bytes) override;
    CryptoResult<std::int64_t> getCertificateNotAfterDate(const common::ByteVector& bytes) override;

private:
    std::shared_ptr<const StoreDatabase> mDatabase;
};

}  // namespace orv::sec::crypto
