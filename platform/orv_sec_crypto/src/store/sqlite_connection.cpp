#include "store/sqlite_connection.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

// No value that the library stores comes near this; it bounds what a doctored file can make SQLite
// allocate.
constexpr int kMaxValueBytes = 1024 * 1024;
constexpr int kAllPages = -1;

CryptoResultCode ToResultCode(int extendedCode) {
    if (extendedCode == SQLITE_CONSTRAINT_PRIMARYKEY || extendedCode == SQLITE_CONSTRAINT_UNIQUE) {
        return CryptoResultCode::kAlreadyExists;
    }
    switch (extendedCode & 0xff) {
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_TOOBIG:
            return CryptoResultCode::kIntegrityError;
        case SQLITE_NOMEM:
            return CryptoResultCode::kOutOfResources;
        default:
            return CryptoResultCode::kStorageError;
    }
}

}  // namespace

SqliteConnection::SqliteConnection(const std::string& path, std::chrono::milliseconds busyTimeout)
    : SqliteConnection(path, path.c_str(), SQLITE_OPEN_READWRITE, busyTimeout) {}

SqliteConnection::SqliteConnection(std::string path, const char* file, int access,
                                   std::chrono::milliseconds busyTimeout)
    : mPath(std::move(path)) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(
        file, &handle, access | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    mHandle.reset(handle);
    if (result != SQLITE_OK) {
        Fail("cannot open", result);
    }
    sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, kMaxValueBytes);
    sqlite3_busy_timeout(handle, static_cast<int>(busyTimeout.count()));
}

std::unique_ptr<SqliteConnection> SqliteConnection::CopyToMemory(
    const std::string& path, std::chrono::milliseconds busyTimeout) {
    const SqliteConnection file(path, path.c_str(), SQLITE_OPEN_READONLY, busyTimeout);
    std::unique_ptr<SqliteConnection> copy(
        new SqliteConnection(path, ":memory:", SQLITE_OPEN_READWRITE, busyTimeout));
    sqlite3_backup* backup = sqlite3_backup_init(copy->Handle(), "main", file.Handle(), "main");
    if (backup == nullptr) {
        copy->Fail("cannot copy", sqlite3_extended_errcode(copy->Handle()));
    }
    const int result = sqlite3_backup_step(backup, kAllPages);
    sqlite3_backup_finish(backup);
    if (result == SQLITE_READONLY_ROLLBACK) {
        throw CryptoError(
            CryptoResultCode::kStorageError,
            path +
                ": a change was interrupted, and the next process that opens the store "
                "for writing, such as the service, undoes it");
    }
    if (result != SQLITE_DONE) {
        throw CryptoError(ToResultCode(result), path + ": cannot read: " + sqlite3_errstr(result) +
                                                    " (SQLite code " + std::to_string(result) +
                                                    ")");
    }
    return copy;
}

void SqliteConnection::Fail(const std::string& what, int resultCode) const {
    std::string message = mPath + ": " + what + ": ";
    message += mHandle == nullptr ? sqlite3_errstr(resultCode) : sqlite3_errmsg(mHandle.get());
    message += " (SQLite code " + std::to_string(resultCode) + ")";
    if (mHandle != nullptr) {
        const int systemError = sqlite3_system_errno(mHandle.get());
        const int primaryCode = resultCode & 0xff;
        if (systemError != 0 && (primaryCode == SQLITE_CANTOPEN || primaryCode == SQLITE_IOERR)) {
            message += ", " + std::generic_category().message(systemError);
        }
    }
    throw CryptoError(ToResultCode(resultCode), message);
}

void SqliteConnection::Execute(const char* sql) {
    const int result = sqlite3_exec(mHandle.get(), sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
        Fail("cannot execute", result);
    }
}

std::string SqliteConnection::QueryText(const char* sql) {
    SqliteStatement statement(*this, sql);
    return statement.Step() ? statement.Text(0) : std::string();
}

std::int64_t SqliteConnection::QueryInteger(const char* sql) {
    SqliteStatement statement(*this, sql);
    return statement.Step() ? statement.Integer(0) : 0;
}

int SqliteConnection::Changes() const {
    return sqlite3_changes(mHandle.get());
}

SqliteStatement::SqliteStatement(const SqliteConnection& connection, const char* sql)
    : mConnection(connection) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v2(connection.Handle(), sql, -1, &statement, nullptr));
    mStatement.reset(statement);
}

void SqliteStatement::Check(int resultCode) const {
    if (resultCode != SQLITE_OK) {
        mConnection.Fail("cannot access", resultCode);
    }
}

SqliteStatement& SqliteStatement::Bind(int parameter, std::string_view text) {
    Check(sqlite3_bind_text64(mStatement.get(), parameter, text.data(), text.size(), SQLITE_STATIC,
                              SQLITE_UTF8));
    return *this;
}

SqliteStatement& SqliteStatement::Bind(int parameter, const common::ByteVector& blob) {
    Check(
        sqlite3_bind_blob64(mStatement.get(), parameter, blob.data(), blob.size(), SQLITE_STATIC));
    return *this;
}

SqliteStatement& SqliteStatement::Bind(int parameter, std::int64_t number) {
    Check(sqlite3_bind_int64(mStatement.get(), parameter, number));
    return *this;
}

bool SqliteStatement::Step() {
    const int result = sqlite3_step(mStatement.get());
    if (result == SQLITE_ROW) {
        return true;
    }
    if (result != SQLITE_DONE) {
        mConnection.Fail("cannot access", result);
    }
    return false;
}

bool SqliteStatement::IsNull(int column) const {
    return sqlite3_column_type(mStatement.get(), column) == SQLITE_NULL;
}

std::int64_t SqliteStatement::Integer(int column) const {
    return sqlite3_column_int64(mStatement.get(), column);
}

std::string SqliteStatement::Text(int column) const {
    const auto* text = sqlite3_column_text(mStatement.get(), column);
    const int size = sqlite3_column_bytes(mStatement.get(), column);
    return text == nullptr
               ? std::string()
               : std::string(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
}

common::ByteVector SqliteStatement::Blob(int column) const {
    const auto* bytes =
        static_cast<const std::uint8_t*>(sqlite3_column_blob(mStatement.get(), column));
    const int size = sqlite3_column_bytes(mStatement.get(), column);
    return bytes == nullptr ? common::ByteVector() : common::ByteVector(bytes, bytes + size);
}

SqliteTransaction::SqliteTransaction(SqliteConnection& connection) : mConnection(connection) {
    mConnection.Execute("BEGIN IMMEDIATE");
}

SqliteTransaction::~SqliteTransaction() {
    // Some failures have rolled back already; the connection then is in autocommit mode.
    if (!mCommitted && sqlite3_get_autocommit(mConnection.Handle()) == 0) {
        sqlite3_exec(mConnection.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void SqliteTransaction::Commit() {
    mConnection.Execute("COMMIT");
    mCommitted = true;
}

}  // namespace orv::sec::crypto
