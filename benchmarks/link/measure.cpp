// Runs a command to its end and writes what it took to a file: wall time, CPU time, peak memory.
//
// It is small on purpose: Linux counts the memory of the process that starts a program as the
// program's, too, so a peak below this one's cannot be seen.

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <system_error>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

double Now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

double Milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) * 1e-3;
}

struct Outcome {
    int status{0};
    double wall{0};
    rusage usage{};
};

Outcome RunCommand(char* const* command) {
    Outcome outcome;
    pid_t child = 0;
    const double start = Now();
    const int error = ::posix_spawnp(&child, command[0], nullptr, nullptr, command, environ);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command[0]);
    }
    while (::wait4(child, &outcome.status, 0, &outcome.usage) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "wait4");
        }
    }
    outcome.wall = Now() - start;
    return outcome;
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc < 3) {
        std::fputs("usage: bench-measure FILE COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    try {
        const Outcome outcome = RunCommand(argv + 2);
        std::FILE* const file = std::fopen(argv[1], "w");
        if (file == nullptr) {
            throw std::system_error(errno, std::generic_category(), argv[1]);
        }
        std::fprintf(file, "{\"wall_ms\": %.3f, \"cpu_ms\": %.3f, \"peak_kib\": %ld}\n",
                     outcome.wall,
                     Milliseconds(outcome.usage.ru_utime) + Milliseconds(outcome.usage.ru_stime),
                     outcome.usage.ru_maxrss);
        if (std::fclose(file) != 0) {
            throw std::system_error(errno, std::generic_category(), argv[1]);
        }
        return WIFEXITED(outcome.status) ? WEXITSTATUS(outcome.status) : 128;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "bench-measure: %s\n", exception.what());
        return 127;
    }
}
