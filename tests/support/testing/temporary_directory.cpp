#include "testing/temporary_directory.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <system_error>

namespace testing_support {

TemporaryDirectory::TemporaryDirectory() {
    std::string path = std::filesystem::temp_directory_path() / "vintrel-test-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    mPath = path;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code error;
    std::filesystem::remove_all(mPath, error);
    if (error) {
        std::cerr << "cannot remove " << mPath << ": " << error.message() << '\n';
    }
}

}  // namespace testing_support
