#pragma once

#include <map>
#include <memory>
#include <string>

#include <sqlite3.h>

#include "openssl_support/openssl_ptr.h"

namespace bare_pass {

using Entries = std::map<std::string, std::string>;

/// The unit's store; here in memory.
class Store {
public:
    virtual ~Store() = default;
    virtual std::string Get(const std::string& id) { return mEntries.at(id); }
    void Put(const Entries& entries) { Change(entries, {}); }
    void Remove(const std::string& id) { Change({}, id); }
    /// Removes the one, if an id is given, and puts the others: all of it, or nothing.
    virtual void Change(const Entries& entries, const std::string& removed) {
        mEntries.erase(removed);
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
    void Change(const Entries& entries, const std::string& removed) override;

private:
    using Statement = openssl_support::OpenSslPtr<sqlite3_stmt, sqlite3_finalize>;

    void Execute(const char* sql);
    Statement Prepare(const char* sql);

    openssl_support::OpenSslPtr<sqlite3, sqlite3_close> mDatabase;
    Statement mSelect;
    Statement mReplace;
    Statement mDelete;
};

}  // namespace bare_pass
