#pragma once

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "store/certificate_column.h"
#include "store/entry_id.h"
#include "store/sqlite_connection.h"

namespace orv::sec::crypto {

/// The certificates that belong to no key pair. Not thread safe; all failures are `CryptoError`.
class CertificateTable {
public:
    explicit CertificateTable(SqliteConnection& connection);

    /// `kIntegrityError` for certificates that do not parse any more.
    common::ByteVector Load(const EntryId& entry) { return mCertificates.Load(entry); }
    /// Stores bytes that parse in the place of what is there; writes nothing when it is the same.
    void Store(const EntryId& entry, const common::ByteVector& certificates);
    void Delete(const EntryId& entry);

private:
    SqliteConnection& mConnection;
    CertificateColumn mCertificates;
};

}  // namespace orv::sec::crypto
