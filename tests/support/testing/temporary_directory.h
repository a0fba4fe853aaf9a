#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "testing/files.h"

namespace testing_support {

/// A new directory that goes, with all that it holds, when the object goes.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    const std::filesystem::path& Path() const { return mPath; }
    std::string File(const std::string& name) const { return (mPath / name).string(); }
    std::string Read(const std::string& name) const { return ReadFile(File(name)); }
    /// Writes a file in place; its path.
    std::string Write(const std::string& name, std::string_view contents) const {
        WriteFile(File(name), contents);
        return File(name);
    }

private:
    std::filesystem::path mPath;
};

}  // namespace testing_support
