// What the libraries of the service cost by themselves: says that it is there, and waits for
// SIGTERM.

#include <cstdio>

#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigwait is not in <csignal>

int main() {
    sigset_t terminate;
    ::sigemptyset(&terminate);
    ::sigaddset(&terminate, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &terminate, nullptr);
    std::fputs("waiting\n", stderr);
    int signal = 0;
    return ::sigwait(&terminate, &signal);
}
