#include "store/certificate_column.h"

#include "x509/certificate_parser.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

ByteVector CertificateColumn::Load(const EntryId& entry) {
    SqliteStatement statement(mConnection, mSelect);
    if (!statement.Bind(1, entry.store).Bind(2, entry.id).Step() || statement.IsNull(0)) {
        throw NotFound("certificate", entry);
    }
    ByteVector certificates = statement.Blob(0);
    Check(entry, certificates);
    return certificates;
}

bool CertificateColumn::Holds(const EntryId& entry, const ByteVector& certificates) const {
    SqliteStatement statement(mConnection, mSelect);
    return statement.Bind(1, entry.store).Bind(2, entry.id).Step() &&
           statement.Blob(0) == certificates;
}

void CertificateColumn::Check(const EntryId& entry, const ByteVector& certificates) {
    ByteVector& checked = mChecked[RowName(entry)];
    if (checked == certificates) {
        return;
    }
    try {
        ParseCertificates(certificates);
    } catch (const CryptoError& error) {
        throw CryptoError(CryptoResultCode::kIntegrityError,
                          "stored certificates " + Describe(entry) + ": " + error.what());
    }
    checked = certificates;
}

}  // namespace orv::sec::crypto
