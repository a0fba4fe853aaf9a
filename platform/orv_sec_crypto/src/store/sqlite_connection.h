#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include <orv/sec/crypto/common/crypto_allocator.h>

namespace orv::sec::crypto {

/// A connection to one SQLite file. All failures are `CryptoError`: `kAlreadyExists` for a broken
/// uniqueness constraint, `kIntegrityError` for a file that is damaged or no database,
/// `kOutOfResources` without memory, else `kStorageError`. Not thread safe.
class SqliteConnection {
public:
    /// Opens an existing file and waits up to `busyTimeout` for other processes at each lock.
    SqliteConnection(const std::string& path, std::chrono::milliseconds busyTimeout);

    /// A copy in memory of what an existing file holds at one moment. Only the copying takes a
    /// lock, one for readers, and nothing is written beside the file or to it.
    static std::unique_ptr<SqliteConnection> CopyToMemory(const std::string& path,
                                                          std::chrono::milliseconds busyTimeout);

    /// Runs statements that yield no rows.
    void Execute(const char* sql);

    /// The first column of the first row, as text; empty if there is no row.
    std::string QueryText(const char* sql);
    std::int64_t QueryInteger(const char* sql);

    /// How many rows the last statement changed.
    int Changes() const;

    sqlite3* Handle() const { return mHandle.get(); }

    [[noreturn]] void Fail(const std::string& what, int resultCode) const;

private:
    SqliteConnection(std::string path, const char* file, int access,
                     std::chrono::milliseconds busyTimeout);

    struct Closer {
        void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
    };

    std::string mPath;
    std::unique_ptr<sqlite3, Closer> mHandle;
};

/// A prepared statement. Parameters and columns are numbered as SQLite does, from 1 and from 0.
/// Bound values must stay in place until the last `Step`.
class SqliteStatement {
public:
    SqliteStatement(const SqliteConnection& connection, const char* sql);

    SqliteStatement& Bind(int parameter, std::string_view text);
    SqliteStatement& Bind(int parameter, const common::ByteVector& blob);
    SqliteStatement& Bind(int parameter, std::int64_t number);

    /// True when there is a row, false when the statement is done.
    bool Step();

    bool IsNull(int column) const;
    std::int64_t Integer(int column) const;
    std::string Text(int column) const;
    common::ByteVector Blob(int column) const;

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
    };

    void Check(int resultCode) const;

    const SqliteConnection& mConnection;
    std::unique_ptr<sqlite3_stmt, Finalizer> mStatement;
};

/// A write transaction. It takes the write lock at once, so that it can't fail half-way for
/// another writer, and is rolled back unless it was committed.
class SqliteTransaction {
public:
    explicit SqliteTransaction(SqliteConnection& connection);
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;

    void Commit();

private:
    SqliteConnection& mConnection;
    bool mCommitted = false;
};

}  // namespace orv::sec::crypto
