#pragma once

#include <filesystem>
#include <string>

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

private:
    std::filesystem::path mPath;
};

}  // namespace testing_support
