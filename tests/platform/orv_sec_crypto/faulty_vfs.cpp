#include "faulty_vfs.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <sqlite3.h>

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
    sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
    sqlite3_vfs vfs{};
};

State& Shared() {
    static auto* state = new State();
    return *state;
}

struct File {
    sqlite3_file base;
    Durability* durability;
    sqlite3_file* real;
};

File& ToFile(sqlite3_file* file) {
    return *reinterpret_cast<File*>(file);
}

sqlite3_file* Real(sqlite3_file* file) {
    return ToFile(file).real;
}

std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
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

int Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    const Fault fault = NextFault();
    if (Shared().plan.fault == Fault::kPowerCut) {
        ToFile(file).durability->unsynced.push_back(
            {static_cast<std::size_t>(offset),
             std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size)), false});
    }
    if (fault == Fault::kPowerCut) {
        CutPower();
    }
    sqlite3_file* real = Real(file);
    if (fault == Fault::kReadOnly) {
        return SQLITE_IOERR_WRITE;
    }
    if (fault == Fault::kNone) {
        return real->pMethods->xWrite(real, bytes, size, offset);
    }
    real->pMethods->xWrite(real, bytes, size / 2, offset);
    if (fault == Fault::kKill) {
        Die();
    }
    return fault == Fault::kDiskFull ? SQLITE_FULL : SQLITE_IOERR_WRITE;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    const Fault fault = NextFault();
    if (Shared().plan.fault == Fault::kPowerCut) {
        ToFile(file).durability->unsynced.push_back({static_cast<std::size_t>(size), "", true});
    }
    if (fault == Fault::kPowerCut) {
        CutPower();
    }
    if (fault == Fault::kKill) {
        Die();
    }
    if (fault == Fault::kError || fault == Fault::kReadOnly) {
        return SQLITE_IOERR_TRUNCATE;
    }
    sqlite3_file* real = Real(file);
    return real->pMethods->xTruncate(real, size);
}

int Sync(sqlite3_file* file, int flags) {
    const Fault fault = NextFault();
    if (fault == Fault::kPowerCut) {
        CutPower();
    }
    if (fault == Fault::kKill) {
        Die();
    }
    if (fault == Fault::kError) {
        return SQLITE_IOERR_FSYNC;
    }
    sqlite3_file* real = Real(file);
    const int result = real->pMethods->xSync(real, flags);
    Durability& durability = *ToFile(file).durability;
    // SQLite's own file system syncs the directory, too, when it first syncs a new file.
    durability.isNameSynced = true;
    for (const Change& change : durability.unsynced) {
        Apply(change, true, durability.synced);
    }
    durability.unsynced.clear();
    return result;
}

template <typename Method, typename... Arguments>
int Forward(sqlite3_file* file, Method method, Arguments... arguments) {
    return (Real(file)->pMethods->*method)(Real(file), arguments...);
}

int Close(sqlite3_file* file) {
    return Forward(file, &sqlite3_io_methods::xClose);
}

int ReadAt(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return Forward(file, &sqlite3_io_methods::xRead, bytes, size, offset);
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
    return Forward(file, &sqlite3_io_methods::xFileSize, size);
}

int Lock(sqlite3_file* file, int level) {
    return Forward(file, &sqlite3_io_methods::xLock, level);
}

int Unlock(sqlite3_file* file, int level) {
    return Forward(file, &sqlite3_io_methods::xUnlock, level);
}

int CheckReservedLock(sqlite3_file* file, int* result) {
    return Forward(file, &sqlite3_io_methods::xCheckReservedLock, result);
}

int FileControl(sqlite3_file* file, int operation, void* argument) {
    return Forward(file, &sqlite3_io_methods::xFileControl, operation, argument);
}

int SectorSize(sqlite3_file* file) {
    return Forward(file, &sqlite3_io_methods::xSectorSize);
}

int DeviceCharacteristics(sqlite3_file* file) {
    return Forward(file, &sqlite3_io_methods::xDeviceCharacteristics);
}

const sqlite3_io_methods* Methods() {
    static const sqlite3_io_methods methods = [] {
        sqlite3_io_methods made{};
        made.iVersion = 1;
        made.xClose = Close;
        made.xRead = ReadAt;
        made.xWrite = Write;
        made.xTruncate = Truncate;
        made.xSync = Sync;
        made.xFileSize = FileSize;
        made.xLock = Lock;
        made.xUnlock = Unlock;
        made.xCheckReservedLock = CheckReservedLock;
        made.xFileControl = FileControl;
        made.xSectorSize = SectorSize;
        made.xDeviceCharacteristics = DeviceCharacteristics;
        return made;
    }();
    return &methods;
}

Durability& Track(const std::string& path) {
    const auto [place, isNew] = Shared().files.try_emplace(path);
    if (!std::filesystem::exists(path)) {
        place->second = {};
    } else if (isNew) {
        place->second = {true, Read(path), {}};
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
    const bool mayCreate = (flags & SQLITE_OPEN_CREATE) != 0;
    const bool isReadOnly = IsReadOnly();
    const Fault fault = mayCreate ? NextFault() : Fault::kNone;
    if (fault == Fault::kKill) {
        Die();
    }
    if (fault == Fault::kPowerCut) {
        CutPower();
    }
    if (fault == Fault::kError) {
        file->pMethods = nullptr;
        return SQLITE_CANTOPEN;
    }
    File& opened = ToFile(file);
    opened.real = reinterpret_cast<sqlite3_file*>(&opened + 1);
    opened.durability = &Track(name == nullptr ? "" : name);
    sqlite3_vfs* real = Shared().real;
    const int result = isReadOnly ? OpenReadOnly(real, name, opened.real, flags, outFlags)
                                  : real->xOpen(real, name, opened.real, flags, outFlags);
    opened.base.pMethods = result == SQLITE_OK ? Methods() : nullptr;
    return result;
}

int Delete(sqlite3_vfs* /*vfs*/, const char* name, int syncDirectory) {
    const Fault fault = NextFault();
    if (fault == Fault::kKill) {
        Die();
    }
    if (fault == Fault::kPowerCut) {
        CutPower();
    }
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
    state.vfs.szOsFile = static_cast<int>(sizeof(File)) + state.real->szOsFile;
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
        file = {std::filesystem::exists(path), Read(path), {}};
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
        std::ofstream(path, std::ios::binary) << file.synced;
    }
    Die();
}

int Disarm() {
    Shared().plan = {};
    return Shared().calls;
}

}  // namespace store_faults
