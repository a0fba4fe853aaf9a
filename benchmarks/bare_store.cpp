#include "benchmarks/bare_store.h"

#include "benchmarks/bare_crypto.h"

namespace bare_pass {

namespace {

void Bind(sqlite3_stmt* statement, int parameter, const std::string& text) {
    Require(sqlite3_bind_text64(statement, parameter, text.data(), text.size(), SQLITE_STATIC,
                                SQLITE_UTF8) == SQLITE_OK);
}

}  // namespace

FileStore::FileStore(const std::string& path) {
    sqlite3* database = nullptr;
    const int opened = sqlite3_open(path.c_str(), &database);
    mDatabase.reset(database);
    Require(opened == SQLITE_OK);
    Execute(
        "PRAGMA synchronous = FULL; PRAGMA journal_mode = TRUNCATE; PRAGMA secure_delete = ON;"
        "CREATE TABLE entry (id TEXT PRIMARY KEY, value BLOB) STRICT, WITHOUT ROWID");
    mSelect = Prepare("SELECT value FROM entry WHERE id = ?1");
    mDelete = Prepare("DELETE FROM entry WHERE id = ?1");
    mReplace = Prepare("REPLACE INTO entry (id, value) VALUES (?1, ?2)");
}

std::string FileStore::Get(const std::string& id) {
    Bind(mSelect.get(), 1, id);
    Require(sqlite3_step(mSelect.get()) == SQLITE_ROW);
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(mSelect.get(), 0));
    const int size = sqlite3_column_bytes(mSelect.get(), 0);
    std::string value(bytes, static_cast<std::size_t>(size));
    Require(sqlite3_reset(mSelect.get()) == SQLITE_OK);
    return value;
}

void FileStore::Change(const Entries& entries, const std::string& removed) {
    Execute("BEGIN IMMEDIATE");
    if (!removed.empty()) {
        Bind(mDelete.get(), 1, removed);
        Require(sqlite3_step(mDelete.get()) == SQLITE_DONE &&
                sqlite3_reset(mDelete.get()) == SQLITE_OK);
    }
    for (const auto& [id, value] : entries) {
        Bind(mReplace.get(), 1, id);
        Require(sqlite3_bind_blob64(mReplace.get(), 2, value.data(), value.size(), SQLITE_STATIC) ==
                    SQLITE_OK &&
                sqlite3_step(mReplace.get()) == SQLITE_DONE &&
                sqlite3_reset(mReplace.get()) == SQLITE_OK);
    }
    Execute("COMMIT");
}

void FileStore::Execute(const char* sql) {
    Require(sqlite3_exec(mDatabase.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

FileStore::Statement FileStore::Prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    Require(sqlite3_prepare_v2(mDatabase.get(), sql, -1, &statement, nullptr) == SQLITE_OK);
    return Statement(statement);
}

}  // namespace bare_pass
