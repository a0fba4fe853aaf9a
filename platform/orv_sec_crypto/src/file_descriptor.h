#pragma once

#include <unistd.h>

namespace orv::sec::crypto {

/// Closes a descriptor at the end of its scope.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : mDescriptor(descriptor) {}
    ~FileDescriptor() {
        if (mDescriptor >= 0) {
            ::close(mDescriptor);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int Get() const { return mDescriptor; }
    bool IsValid() const { return mDescriptor >= 0; }

private:
    int mDescriptor;
};

}  // namespace orv::sec::crypto
