#pragma once

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <sys/wait.h>

#include "testing/temporary_directory.h"

namespace provision {

/// Runs the real programs in a directory of the test's own.
class ProgramTest : public ::testing::Test {
protected:
    /// The exit status; what the program writes is in the files "output" and "errors".
    int Run(const std::string& program, const std::string& arguments,
            const std::string& wrapper = "") {
        const std::string command = "cd " + mDirectory.Path().string() + " && " + wrapper +
                                    " " BINARY_DIRECTORY + program + " " + arguments +
                                    " >output 2>errors </dev/null";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int Provision(const std::string& arguments, const std::string& wrapper = "") {
        return Run("vintrel-provision", "--store store " + arguments, wrapper);
    }

    std::string Read(const std::string& name) const { return mDirectory.Read(name); }

    testing_support::TemporaryDirectory mDirectory;
};

}  // namespace provision
