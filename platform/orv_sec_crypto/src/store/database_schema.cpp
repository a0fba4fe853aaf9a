#include "store/database_schema.h"

#include <array>
#include <chrono>
#include <cstdint>

#include "errors/crypto_error.h"
#include "errors/crypto_log.h"
#include "store/database_file.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

constexpr std::chrono::milliseconds kBusyTimeout{5000};
// "ORVS"
constexpr std::int64_t kApplicationId = 0x4F525653;

// The schema's version 1.
constexpr const char* kTables = R"(
    CREATE TABLE store (
        name TEXT NOT NULL PRIMARY KEY CHECK (length(name) BETWEEN 1 AND 128),
        kind INTEGER NOT NULL CHECK (kind IN (1, 2))
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE key_pair (
        store TEXT NOT NULL REFERENCES store (name),
        id TEXT NOT NULL CHECK (length(id) BETWEEN 1 AND 128),
        public_key BLOB NOT NULL CHECK (length(public_key) > 0),
        wrapped_private_key BLOB NOT NULL CHECK (length(wrapped_private_key) > 0),
        certificates BLOB CHECK (length(certificates) BETWEEN 1 AND 262144),
        PRIMARY KEY (store, id)
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE certificate (
        store TEXT NOT NULL REFERENCES store (name),
        id TEXT NOT NULL CHECK (length(id) BETWEEN 1 AND 128),
        certificates BLOB NOT NULL CHECK (length(certificates) BETWEEN 1 AND 262144),
        PRIMARY KEY (store, id)
    ) STRICT, WITHOUT ROWID;
    PRAGMA application_id = 1330796115;
)";

// What leads from each version of the schema to the next one, from the empty file, version 0, on.
constexpr std::array<const char*, 1> kUpgrades{kTables};
constexpr std::int64_t kSchemaVersion = kUpgrades.size();

CryptoError StorageError(const std::string& message) {
    return CryptoError(CryptoResultCode::kStorageError, message);
}

void Configure(SqliteConnection& connection) {
    connection.Execute(
        "PRAGMA foreign_keys = ON;"
        "PRAGMA trusted_schema = OFF;"
        "PRAGMA secure_delete = ON;"
        "PRAGMA temp_store = MEMORY;"
        "PRAGMA synchronous = FULL;");
}

void SetJournalMode(SqliteConnection& connection, const std::string& directory) {
    const std::string mode = connection.QueryText("PRAGMA journal_mode = TRUNCATE");
    if (mode != "truncate") {
        throw StorageError(DatabasePath(directory) + ": journal mode is '" + mode +
                           "', not truncate");
    }
}

// Throws unless this program's version may open the database.
std::int64_t SchemaVersion(SqliteConnection& connection, const std::string& directory) {
    const std::int64_t application = connection.QueryInteger("PRAGMA application_id");
    const std::int64_t version = connection.QueryInteger("PRAGMA user_version");
    if (application == kApplicationId && version > kSchemaVersion) {
        throw StorageError(DatabasePath(directory) + ": schema version " + std::to_string(version) +
                           " is newer than this program's, which is " +
                           std::to_string(kSchemaVersion));
    }
    const bool isEmpty = application == 0 && version == 0 &&
                         connection.QueryInteger("SELECT count(*) FROM sqlite_schema") == 0;
    if (!isEmpty && (application != kApplicationId || version < 1)) {
        throw StorageError(DatabasePath(directory) + ": no secure store: schema version " +
                           std::to_string(version) + " of application " +
                           std::to_string(application));
    }
    return version;
}

void UpgradeSchema(SqliteConnection& connection, const std::string& directory,
                   const std::string& trace) {
    if (SchemaVersion(connection, directory) == kSchemaVersion) {
        return;
    }
    SqliteTransaction transaction(connection);
    // Another process may have been faster.
    const std::int64_t version = SchemaVersion(connection, directory);
    if (version == 0 && !trace.empty()) {
        throw LostStore(directory, trace);
    }
    for (auto step = static_cast<std::size_t>(version); step < kUpgrades.size(); ++step) {
        connection.Execute(kUpgrades[step]);
    }
    connection.Execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
    transaction.Commit();
    if (version > 0) {
        Log().Info(DatabasePath(directory) + ": upgraded from schema version " +
                   std::to_string(version) + " to " + std::to_string(kSchemaVersion));
    }
}

}  // namespace

std::unique_ptr<SqliteConnection> ConnectToDatabase(const std::string& directory,
                                                    const std::string& trace) {
    auto connection = std::make_unique<SqliteConnection>(DatabasePath(directory), kBusyTimeout);
    Configure(*connection);
    // A store that is not for this version to open stays untouched.
    SchemaVersion(*connection, directory);
    SetJournalMode(*connection, directory);
    UpgradeSchema(*connection, directory, trace);
    return connection;
}

std::unique_ptr<SqliteConnection> ConnectToCopy(const std::string& directory,
                                                const std::string& trace) {
    auto connection = SqliteConnection::CopyToMemory(DatabasePath(directory), kBusyTimeout);
    Configure(*connection);
    UpgradeSchema(*connection, directory, trace);
    return connection;
}

}  // namespace orv::sec::crypto
