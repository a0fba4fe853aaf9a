#pragma once

#include <map>
#include <memory>
#include <string>

#include <sqlite3.h>

#include "openssl_support/openssl_ptr.h"

namespace bare_pass {

/// Throws std::runtime_error.
void Require(bool good);

using Entries = std::map<std::string, std::string>;

/// The unit's store; here in memory.
class Store {
public:
    virtual ~Store() = default;
    virtual std::string Get(const std::string& id) { return mEntries.at(id); }
    /// All of them, or none.
    virtual void Put(const Entries& entries) {
        for (const auto& [id, value] : entries) {
            mEntries[id] = value;
        }
    }

private:
    Entries mEntries;
};

/// One file, with the settings of the unit's own.
class FileStore : public Store {
public:
    explicit FileStore(const std::string& path);
    std::string Get(const std::string& id) override;
    void Put(const Entries& entries) override;

private:
    using Statement = openssl_support::OpenSslPtr<sqlite3_stmt, sqlite3_finalize>;

    void Execute(const char* sql);
    Statement Prepare(const char* sql);

    openssl_support::OpenSslPtr<sqlite3, sqlite3_close> mDatabase;
    Statement mSelect;
    Statement mReplace;
};

}  // namespace bare_pass
