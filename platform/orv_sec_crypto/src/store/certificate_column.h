#pragma once

#include <map>
#include <string>

#include <orv/sec/crypto/common/crypto_allocator.h>

#include "store/entry_id.h"
#include "store/sqlite_connection.h"

namespace orv::sec::crypto {

/// The certificates in the rows of one table. Not thread safe; all failures are `CryptoError`.
class CertificateColumn {
public:
    /// `select` yields the certificates of the row with store ?1 and id ?2.
    CertificateColumn(const SqliteConnection& connection, const char* select)
        : mConnection(connection), mSelect(select) {}

    /// As stored. `kNotFound` when there are none, `kIntegrityError` when they do not parse.
    common::ByteVector Load(const EntryId& entry);

    /// Whether exactly these bytes are stored.
    bool Holds(const EntryId& entry, const common::ByteVector& certificates) const;

private:
    void Check(const EntryId& entry, const common::ByteVector& certificates);

    const SqliteConnection& mConnection;
    const char* const mSelect;
    // What was loaded last from each row, and parsed: the same bytes need not be parsed again.
    std::map<std::string, common::ByteVector> mChecked;
};

}  // namespace orv::sec::crypto
