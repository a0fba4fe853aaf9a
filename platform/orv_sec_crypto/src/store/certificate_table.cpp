#include "store/certificate_table.h"

namespace orv::sec::crypto {

using common::ByteVector;

CertificateTable::CertificateTable(SqliteConnection& connection)
    : mConnection(connection),
      mCertificates(connection,
                    "SELECT certificates FROM certificate WHERE store = ?1 AND id = ?2") {}

void CertificateTable::Store(const EntryId& entry, const ByteVector& certificates) {
    // Each judgement puts the same certificate into the scratch slot; it must wear no flash.
    if (mCertificates.Holds(entry, certificates)) {
        return;
    }
    SqliteStatement(mConnection,
                    "INSERT INTO certificate (store, id, certificates) VALUES (?1, ?2, ?3) "
                    "ON CONFLICT (store, id) DO UPDATE SET certificates = excluded.certificates")
        .Bind(1, entry.store)
        .Bind(2, entry.id)
        .Bind(3, certificates)
        .Step();
}

void CertificateTable::Delete(const EntryId& entry) {
    SqliteStatement(mConnection, "DELETE FROM certificate WHERE store = ?1 AND id = ?2")
        .Bind(1, entry.store)
        .Bind(2, entry.id)
        .Step();
    if (mConnection.Changes() == 0) {
        throw NotFound("entry", entry);
    }
}

}  // namespace orv::sec::crypto
