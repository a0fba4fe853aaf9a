#pragma once

#include <cstdlib>
#include <string>

namespace testing_support {

/// Sets a variable of the environment while it lives.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const std::string& value) : mName(name) {
        ::setenv(mName, value.c_str(), 1);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() { ::unsetenv(mName); }

private:
    const char* mName;
};

}  // namespace testing_support
