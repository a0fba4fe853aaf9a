#include "library/certificate_handler.h"

#include <utility>

#include "x509/certificate_parser.h"
#include "x509/certificate_verifier.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

CertificateHandler::CertificateHandler(std::shared_ptr<const StoreDatabase> database)
    : mDatabase(std::move(database)) {}

CryptoResultCode CertificateHandler::verifyCertificate(const ByteVector& certificate,
                                                       const ByteVector& issuer) {
    return RunOperation("verifyCertificate", [&] {
        mDatabase->CheckOpen();
        const X509Ptr subject = ParseCertificate(certificate);
        std::string fault;
        for (const X509Ptr& candidate : ParseCertificates(issuer)) {
            fault = FindVerificationFault(*subject, *candidate);
            if (fault.empty()) {
                return;
            }
        }
        throw CryptoError(CryptoResultCode::kVerificationFailed, fault);
    });
}

CryptoResult<std::vector<ByteVector>> CertificateHandler::splitCertificatesChain(
    const ByteVector& bytes) {
    return RunForResult<std::vector<ByteVector>>("splitCertificatesChain", [&] {
        mDatabase->CheckOpen();
        std::vector<ByteVector> elements;
        for (const X509Ptr& certificate : ParseCertificates(bytes)) {
            elements.push_back(EncodeDer(*certificate));
        }
        return elements;
    });
}

CryptoResult<ByteVector> CertificateHandler::pemToDer(const ByteVector& bytes,
                                                      const operation::PemFormat& format) {
    return RunForResult<ByteVector>("pemToDer", [&] {
        mDatabase->CheckOpen();
        if (format != operation::PemFormat::kCertificate) {
            throw CryptoError(CryptoResultCode::kUnsupported, "unknown format");
        }
        return EncodeDer(*ParseCertificate(bytes));
    });
}

CryptoResult<std::string> CertificateHandler::getCertificateIssuerCommonName(
    const ByteVector& bytes) {
    return RunForResult<std::string>("getCertificateIssuerCommonName", [&] {
        mDatabase->CheckOpen();
        return SubjectCommonName(*ParseCertificate(bytes));
    });
}

CryptoResult<std::int64_t> CertificateHandler::getCertificateNotBeforeDate(
    const ByteVector& bytes) {
    return RunForResult<std::int64_t>("getCertificateNotBeforeDate", [&] {
        mDatabase->CheckOpen();
        return ToEpochSeconds(*X509_get0_notBefore(ParseCertificate(bytes).get()));
    });
}

CryptoResult<std::int64_t> CertificateHandler::getCertificateNotAfterDate(const ByteVector& bytes) {
    return RunForResult<std::int64_t>("getCertificateNotAfterDate", [&] {
        mDatabase->CheckOpen();
        return ToEpochSeconds(*X509_get0_notAfter(ParseCertificate(bytes).get()));
    });
}

}  // namespace orv::sec::crypto
