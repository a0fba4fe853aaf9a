#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

namespace simulator::page {

/// Starts a program with these arguments, without a shell: in a process group of its own, with the
/// default signals, an empty standard input and no other descriptor of this process. The caller
/// waits for it. Throws std::system_error.
/// @param argv the program, by its path, and its arguments
/// @param output, errors descriptors for its standard output and error
pid_t Spawn(const std::vector<std::string>& argv, int output, int errors);

struct ProgramResult {
    /// The exit status; 128 and the signal's number if one ended it.
    int status{0};
    std::string output;
    std::string errors;
};

/// Runs a program to its end and returns its output, 1 MiB of each stream at most. Blocks; a
/// program that takes longer than `limit` is killed. Throws std::system_error if it cannot be
/// started.
ProgramResult RunToEnd(const std::vector<std::string>& argv, std::chrono::milliseconds limit);

/// The status of `waitpid` as a shell counts it.
int ExitStatus(int waitStatus);

/// A descriptor that becomes readable when the process ends; the caller owns it. Throws
/// std::system_error.
int OpenPidFd(pid_t pid);

}  // namespace simulator::page
