// Runs whole lives of the client machine, one for each seed, and closes with their sum.

#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <ara_log_host/sink.h>

#include "logging/qel_logging.h"
#include "simulation/leaks.h"
#include "simulation/oracle.h"
#include "simulation/world.h"

namespace {

using simulation::Holdings;
using simulation::Oracle;
using simulation::World;

struct Options {
    std::uint64_t seeds{1000};
    std::uint64_t from{1};
    bool first{false};
    bool rows{false};
};

struct Sum {
    std::uint64_t lives{0};
    std::uint64_t passes{0};
    std::uint64_t steps{0};
    std::uint64_t violations{0};
};

Oracle* gOracle = nullptr;

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
    const Holdings before = simulation::CountHoldings();
    std::string violation = Live(seed, sum, nullptr);
    const Holdings after = simulation::CountHoldings();
    if (violation.empty() && after.descriptors != before.descriptors) {
        return std::to_string(after.descriptors - before.descriptors) + " descriptors are left";
    }
    if (violation.empty() && after.blocks != before.blocks) {
        return std::to_string(after.blocks - before.blocks) + " blocks of memory are left";
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

/// How many rows were never walked.
int PrintRows() {
    int missing = 0;
    for (const auto& [row, count] : Oracle::Rows()) {
        std::cout << count << "  " << row << '\n';
        missing += count == 0 ? 1 : 0;
    }
    std::cout << "rows=" << Oracle::Rows().size() << " never-walked=" << missing << '\n';
    return missing;
}

int RunSimulation(int argc, char** argv) {
    CLI::App app{"Whole lives of the client machine, one for each seed"};
    Options options;
    app.add_option("--seeds", options.seeds, "how many lives");
    app.add_option("--from", options.from, "the first seed");
    app.add_flag("--first", options.first, "end at the first violation");
    app.add_flag("--rows", options.rows,
                 "show how often each row of the tables was walked; one that never was is a "
                 "failure");
    CLI11_PARSE(app, argc, argv);

    InstallSink();
    Sum sum;
    Run(options, sum);
    const int missing = options.rows ? PrintRows() : 0;
    std::cout << "lives=" << sum.lives << " passes=" << sum.passes << " steps=" << sum.steps
              << " violations=" << sum.violations << '\n';
    return sum.violations == 0 && missing == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return RunSimulation(argc, argv);
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << '\n';
        return 1;
    }
}
