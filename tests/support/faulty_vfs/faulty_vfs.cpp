#include "faulty_vfs/faulty_vfs.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <sqlite3.h>

#include "testing/files.h"

namespace store_faults {

namespace {

constexpr std::size_t kSectorSize = 512;

struct Change {
    std::size_t offset;
    std::string bytes;
    /// The file ends at `offset`.
    bool isTruncation;
};

/// What of a file a loss of power would leave.
struct Durability {
    bool isNameSynced = false;
    std::string synced;
    std::vector<Change> unsynced;
};

struct State {
    FaultPlan plan;
    int calls = 0;
    std::mt19937 random;
    std::map<std::string, Durability> files;
    /// Which of them an open file is.
    std::map<sqlite3_file*, Durability*> open;
    sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
    sqlite3_vfs vfs{};
    /// The real files' calls, which differ only in how they lock, and by these what ours do.
    sqlite3_io_methods realFile{};
    std::map<const sqlite3_io_methods*, sqlite3_io_methods> methods;
};

State& Shared() {
    static auto* state = new State();
    return *state;
}

bool Toss() {
    return Shared().random() % 2 == 0;
}

/// The fault of this call. All calls that change something begin here.
Fault NextFault() {
    State& state = Shared();
    ++state.calls;
    const FaultPlan& plan = state.plan;
    const bool persists = plan.fault == Fault::kDiskFull || plan.fault == Fault::kReadOnly;
    const bool isDue = persists ? state.calls >= plan.call : state.calls == plan.call;
    return isDue ? plan.fault : Fault::kNone;
}

bool IsReadOnly() {
    const State& state = Shared();
    return state.plan.fault == Fault::kReadOnly && state.calls + 1 >= state.plan.call;
}

void Apply(const Change& change, bool isWhole, std::string& image) {
    if (change.isTruncation) {
        if (isWhole || Toss()) {
            image.resize(std::min(image.size(), change.offset));
        }
        return;
    }
    for (std::size_t at = 0; at < change.bytes.size(); at += kSectorSize) {
        if (!isWhole && Toss()) {
            continue;
        }
        const std::string sector = change.bytes.substr(at, kSectorSize);
        const std::size_t offset = change.offset + at;
        image.resize(std::max(image.size(), offset + sector.size()));
        image.replace(offset, sector.size(), sector);
    }
}

[[noreturn]] void Die() {
    std::raise(SIGKILL);
    std::abort();
}

/// As above for the calls that no death ends half-way.
Fault NextWholeFault() {
    const Fault fault = NextFault();
    if (fault == Fault::kPowerCut) {
        CutPower();
    }
    if (fault == Fault::kKill) {
        Die();
    }
    return fault;
}

void Note(sqlite3_file* file, Change change) {
    if (Shared().plan.fault == Fault::kPowerCut) {
        Shared().open[file]->unsynced.push_back(std::move(change));
    }
}

int Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    Note(file,
         {static_cast<std::size_t>(offset),
          std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size)), false});
    const Fault fault = NextFault();
    if (fault == Fault::kPowerCut) {
        CutPower();
    }
    if (fault == Fault::kReadOnly) {
        return SQLITE_IOERR_WRITE;
    }
    const auto write = Shared().realFile.xWrite;
    if (fault == Fault::kNone) {
        return write(file, bytes, size, offset);
    }
    write(file, bytes, size / 2, offset);
    if (fault == Fault::kKill) {
        Die();
    }
    return fault == Fault::kDiskFull ? SQLITE_FULL : SQLITE_IOERR_WRITE;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    Note(file, {static_cast<std::size_t>(size), "", true});
    const Fault fault = NextWholeFault();
    if (fault == Fault::kError || fault == Fault::kReadOnly) {
        return SQLITE_IOERR_TRUNCATE;
    }
    return Shared().realFile.xTruncate(file, size);
}

int Sync(sqlite3_file* file, int flags) {
    if (NextWholeFault() == Fault::kError) {
        return SQLITE_IOERR_FSYNC;
    }
    const int result = Shared().realFile.xSync(file, flags);
    Durability& durability = *Shared().open[file];
    // SQLite's own file system syncs the directory, too, when it first syncs a new file.
    durability.isNameSynced = true;
    for (const Change& change : durability.unsynced) {
        Apply(change, true, durability.synced);
    }
    durability.unsynced.clear();
    return result;
}

Durability& Track(const std::string& path) {
    const auto [place, isNew] = Shared().files.try_emplace(path);
    if (!std::filesystem::exists(path)) {
        place->second = {};
    } else if (isNew) {
        place->second = {true, testing_support::ReadFile(path), {}};
    }
    return place->second;
}

int OpenReadOnly(sqlite3_vfs* real, const char* name, sqlite3_file* file, int flags, int* out) {
    if ((flags & SQLITE_OPEN_CREATE) != 0 && !std::filesystem::exists(name)) {
        return SQLITE_CANTOPEN;
    }
    const int readOnly =
        (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    return real->xOpen(real, name, file, readOnly, out);
}

int Open(sqlite3_vfs* /*vfs*/, const char* name, sqlite3_file* file, int flags, int* outFlags) {
    State& state = Shared();
    const bool isReadOnly = IsReadOnly();
    const bool mayCreate = (flags & SQLITE_OPEN_CREATE) != 0;
    if (mayCreate && NextWholeFault() == Fault::kError) {
        file->pMethods = nullptr;
        return SQLITE_CANTOPEN;
    }
    state.open[file] = &Track(name == nullptr ? "" : name);
    const int result = isReadOnly ? OpenReadOnly(state.real, name, file, flags, outFlags)
                                  : state.real->xOpen(state.real, name, file, flags, outFlags);
    if (result != SQLITE_OK) {
        file->pMethods = nullptr;
        return result;
    }
    state.realFile = *file->pMethods;
    sqlite3_io_methods& methods = state.methods[file->pMethods];
    methods = state.realFile;
    methods.iVersion = 1;
    methods.xWrite = Write;
    methods.xTruncate = Truncate;
    methods.xSync = Sync;
    file->pMethods = &methods;
    return result;
}

int Delete(sqlite3_vfs* /*vfs*/, const char* name, int syncDirectory) {
    const Fault fault = NextWholeFault();
    if (fault == Fault::kError || fault == Fault::kReadOnly) {
        return SQLITE_IOERR_DELETE;
    }
    sqlite3_vfs* real = Shared().real;
    const int result = real->xDelete(real, name, syncDirectory);
    if (syncDirectory != 0) {
        Shared().files.erase(name);
    }
    return result;
}

}  // namespace

void Install() {
    State& state = Shared();
    state.vfs = *state.real;
    state.vfs.zName = "faulty";
    state.vfs.xOpen = Open;
    state.vfs.xDelete = Delete;
    sqlite3_vfs_register(&state.vfs, 1);
}

void Arm(const FaultPlan& plan) {
    State& state = Shared();
    state.plan = plan;
    state.calls = 0;
    state.random.seed(plan.seed);
    for (auto& [path, file] : state.files) {
        file = {std::filesystem::exists(path), testing_support::ReadFile(path), {}};
    }
}

void CutPower() {
    // All that was not synced is there, or none of it, or each sector by chance.
    const auto kind = Shared().random() % 3;
    for (auto& [path, file] : Shared().files) {
        if (!file.isNameSynced && (kind == 1 || Toss())) {
            std::filesystem::remove(path);
            continue;
        }
        for (const Change& change : file.unsynced) {
            if (kind != 1) {
                Apply(change, kind == 0, file.synced);
            }
        }
        testing_support::WriteFile(path, file.synced);
    }
    Die();
}

int Disarm() {
    Shared().plan = {};
    return Shared().calls;
}

}  // namespace store_faults
