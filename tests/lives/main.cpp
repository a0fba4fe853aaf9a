// Runs whole lives of the client machine, one for each seed, and closes with their sum.

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fcntl.h>

#include <ara_log_host/sink.h>

#include "lives/oracle.h"
#include "lives/world.h"
#include "logging/qel_logging.h"

namespace {

using lives::Oracle;
using lives::World;

struct Options {
    std::uint64_t seeds{1000};
    std::uint64_t from{1};
    bool first{false};
};

struct Sum {
    std::uint64_t lives{0};
    std::uint64_t passes{0};
    std::uint64_t steps{0};
    std::uint64_t violations{0};
};

Oracle* gOracle = nullptr;
/// Blocks of memory that `new` has given out. One thread, so no atomic.
long gBlocks = 0;

void InstallSink() {
    qel_logging::QELLogging::InitLogging("SIM");
    ara_log_host::ExchangeSink({[](ara::log::LogLevel level, const std::string& text) {
                                    if (gOracle != nullptr) {
                                        gOracle->SeeLine(
                                            static_cast<qel_logging::EQELLogLevel>(level), text);
                                    }
                                },
                                ara::log::LogLevel::kVerbose});
}

int CountDescriptors() {
    constexpr int kMoreThanALifeOpens = 48;
    int count = 0;
    for (int descriptor = 0; descriptor < kMoreThanALifeOpens; ++descriptor) {
        count += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

/// One life; returns its violation, or nothing.
std::string Live(std::uint64_t seed, Sum& sum, std::vector<std::string>* story) {
    World world(seed, story);
    gOracle = &world.oracle;
    world.Live();
    world.Destroy();
    gOracle = nullptr;
    ++sum.lives;
    sum.passes += world.oracle.passes;
    sum.steps += world.steps;
    return world.oracle.Violation();
}

/// One life, and a look at what it has left behind.
std::string LiveAndLeave(std::uint64_t seed, Sum& sum) {
    const int descriptors = CountDescriptors();
    const long blocks = gBlocks;
    std::string violation = Live(seed, sum, nullptr);
    const long leftBlocks = gBlocks - blocks;
    const int leftDescriptors = CountDescriptors() - descriptors;
    if (violation.empty() && (leftBlocks != 0 || leftDescriptors != 0)) {
        violation = std::to_string(leftDescriptors) + " descriptors and " +
                    std::to_string(leftBlocks) + " blocks of memory are left";
    }
    return violation;
}

/// On one line, whatever the text holds.
std::string Escaped(const std::string& text) {
    std::string line;
    for (const char byte : text) {
        if (byte == '\n' || byte == '\r') {
            line += byte == '\n' ? "\\n" : "\\r";
        } else {
            line += byte >= ' ' && byte <= '~' ? byte : '?';
        }
    }
    return line;
}

void Report(std::uint64_t seed, const std::string& violation) {
    std::vector<std::string> story;
    Sum ignored;
    Live(seed, ignored, &story);
    std::cout << "seed " << seed << ": " << Escaped(violation) << '\n';
    for (const std::string& line : story) {
        std::cout << "  " << Escaped(line) << '\n';
    }
}

void Run(const Options& options, Sum& sum) {
    for (std::uint64_t seed = options.from; seed - options.from < options.seeds; ++seed) {
        std::string violation = LiveAndLeave(seed, sum);
        if (violation.find(" are left") != std::string::npos) {
            // What is made once and kept for good looks like a leak the first time only.
            Sum ignored;
            violation = LiveAndLeave(seed, ignored);
        }
        if (violation.empty()) {
            continue;
        }
        ++sum.violations;
        Report(seed, violation);
        if (options.first) {
            return;
        }
    }
}

int RunSimulation(int argc, char** argv) {
    CLI::App app{"Whole lives of the client machine, one for each seed"};
    Options options;
    app.add_option("--seeds", options.seeds, "how many lives");
    app.add_option("--from", options.from, "the first seed");
    app.add_flag("--first", options.first, "end at the first violation");
    CLI11_PARSE(app, argc, argv);

    InstallSink();
    Sum sum;
    Run(options, sum);
    std::cout << "lives=" << sum.lives << " passes=" << sum.passes << " steps=" << sum.steps
              << " violations=" << sum.violations << '\n';
    return sum.violations == 0 ? 0 : 1;
}

}  // namespace

void* operator new(std::size_t size) {
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++gBlocks;
    return block;
}

void operator delete(void* block) noexcept {
    gBlocks -= block != nullptr ? 1 : 0;
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

int main(int argc, char** argv) {
    try {
        return RunSimulation(argc, argv);
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << '\n';
        return 1;
    }
}
