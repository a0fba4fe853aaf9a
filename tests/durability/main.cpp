// Kills processes that write to the secure store, looks at what each one leaves, and closes with
// the count of kills and of those after which something was lost.

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ara_log_host/sink.h>

#include "durability/scenario.h"

namespace {

using kill_store::Blow;
using kill_store::kScenarios;
using kill_store::NameOf;
using kill_store::Record;
using kill_store::Scenario;
using store_faults::Fault;

struct Options {
    int kills{1000};
    std::uint32_t seed{1};
};

struct Round {
    Scenario scenario{};
    Blow blow;
};

struct Extent {
    int calls = 0;
    std::int64_t nanoseconds = 0;
};

/// A new directory, in memory where there is room, and gone at the end. What a loss of power would
/// do is simulated, so no real disk is needed.
class Directory {
public:
    Directory() {
        const bool hasMemory = ::access("/dev/shm", W_OK | X_OK) == 0;
        std::string path = hasMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
        path += "/kill-store-XXXXXX";
        if (::mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no directory " + path);
        }
        mPath = path;
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string Store(int number) const { return (mPath / std::to_string(number)).string(); }

private:
    std::filesystem::path mPath;
};

/// Runs work in a process of its own; true when it died of SIGKILL.
bool RunApart(const std::function<void()>& work) {
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error("cannot fork");
    }
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child) {
        throw std::runtime_error("cannot wait");
    }
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

class Killer {
public:
    explicit Killer(const Options& options) : mOptions(options), mRandom(options.seed) {
        void* const shared = ::mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE,
                                    MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) {
            throw std::bad_alloc();
        }
        mRecord = new (shared) Record();
    }

    /// The exit status.
    int Run() {
        UseNewStore();
        for (Scenario scenario = 0; scenario < kScenarios; ++scenario) {
            Measure(scenario);
        }
        PlanEveryCall(0, kill_store::kPass);
        PlanEveryCall(kill_store::kPass, kScenarios);
        for (const Round& round : mPlanned) {
            if (mKills < mOptions.kills) {
                Kill(round);
            }
        }
        // Many a blow at random comes too late; a hundred in a row do not.
        for (int missed = 0; mKills < mOptions.kills && missed < 100;) {
            missed = Kill(RandomRound()) ? 0 : missed + 1;
        }
        for (const auto& [what, count] : mCounts) {
            std::cout << what << ": " << count << '\n';
        }
        std::cout << "kills=" << mKills << " lost=" << mLost << '\n';
        return mLost == 0 && mKills >= mOptions.kills ? 0 : 1;
    }

private:
    void UseNewStore() {
        ::setenv("ORV_CRYPTO_DIR", mDirectory.Store(++mStores).c_str(), 1);
        RunApart([this] { kill_store::Provision(mBackend); });
    }

    bool Play(const Round& round) {
        *mRecord = Record();
        return RunApart([&] { kill_store::Play(round.scenario, round.blow, mBackend, *mRecord); });
    }

    /// Counts a loss, tells its story, and goes on with a new store.
    void Inspect(const Round& round, const std::string& story) {
        const bool hasFailed = mRecord->hasFailed;
        const std::string failure = mRecord->verdict.data();
        RunApart([&] { kill_store::Inspect(round.scenario, mBackend, *mRecord); });
        std::string verdict = mRecord->verdict.data();
        if (!hasFailed && verdict == "sound") {
            return;
        }
        if (hasFailed) {
            verdict = failure;
        }
        ++mLost;
        std::cout << "lost after " << story << ": "
                  << (verdict.empty() ? "the inspection died" : verdict) << '\n';
        UseNewStore();
    }

    void Measure(Scenario scenario) {
        Play({scenario, {}});
        mExtents[scenario] = {mRecord->calls, mRecord->nanoseconds};
        Inspect({scenario, {}}, std::string("an undisturbed ") + NameOf(scenario));
    }

    void PlanEveryCall(Scenario first, Scenario last) {
        for (const Fault fault : {Fault::kKill, Fault::kPowerCut}) {
            for (Scenario scenario = first; scenario < last; ++scenario) {
                // The power can also go when all is done.
                const int end = mExtents[scenario].calls + (fault == Fault::kPowerCut ? 1 : 0);
                for (int call = 1; call <= end; ++call) {
                    mPlanned.push_back({scenario, {{fault, call, NextRandom()}, 0}});
                }
            }
        }
    }

    Round RandomRound() {
        const Scenario scenario = NextRandom() % kScenarios;
        const Extent& extent = mExtents[scenario];
        if (NextRandom() % 2 == 0) {
            const std::int64_t range = std::max<std::int64_t>(extent.nanoseconds, 1);
            return {scenario, {{}, 1 + static_cast<std::int64_t>(mRandom() % range)}};
        }
        const Fault fault = NextRandom() % 2 == 0 ? Fault::kKill : Fault::kPowerCut;
        const int call =
            1 +
            static_cast<int>(NextRandom() % static_cast<std::uint32_t>(std::max(extent.calls, 1)));
        return {scenario, {{fault, call, NextRandom()}, 0}};
    }

    /// Whether the blow came in time.
    bool Kill(const Round& round) {
        const store_faults::FaultPlan& plan = round.blow.plan;
        const std::string kind = plan.fault == Fault::kNone   ? "killed at a random moment"
                                 : plan.fault == Fault::kKill ? "killed at a write"
                                                              : "power cut at a write";
        const bool isKilled = Play(round);
        if (isKilled) {
            ++mKills;
            ++mCounts[kind];
            KillNextStart();
        }
        const std::string moment = plan.fault == Fault::kNone
                                       ? std::to_string(round.blow.nanoseconds) + " ns"
                                       : std::to_string(plan.call);
        Inspect(round, std::string(NameOf(round.scenario)) + " " + kind + " (" + moment +
                           ", seed " + std::to_string(plan.seed) + ")");
        return isKilled;
    }

    /// The start after a blow, which has to clear up, is interrupted itself, in every other case.
    void KillNextStart() {
        const std::uint32_t choice = NextRandom();
        if (mKills >= mOptions.kills || choice % 2 == 0) {
            return;
        }
        const Fault fault = choice % 4 == 1 ? Fault::kKill : Fault::kPowerCut;
        const Blow blow{{fault, 1 + static_cast<int>(choice / 4 % 6), NextRandom()}, 0};
        if (RunApart([&] { kill_store::Start(blow); })) {
            ++mKills;
            ++mCounts["struck again at the next start"];
        }
    }

    std::uint32_t NextRandom() { return static_cast<std::uint32_t>(mRandom()); }

    const Options mOptions;
    std::mt19937_64 mRandom;
    const testing_support::Family mBackend{"Product"};
    const Directory mDirectory;
    Record* mRecord = nullptr;
    int mStores = 0;
    int mKills = 0;
    int mLost = 0;
    std::map<Scenario, Extent> mExtents;
    std::vector<Round> mPlanned;
    std::map<std::string, int> mCounts;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app{"Kills processes that write to the secure store, and looks for losses"};
        Options options;
        app.add_option("--kills", options.kills, "how many processes to kill")
            ->check(CLI::PositiveNumber)
            ->capture_default_str();
        app.add_option("--seed", options.seed, "of the random choices")->capture_default_str();
        CLI11_PARSE(app, argc, argv);
        ara_log_host::ExchangeSink({[](ara::log::LogLevel, const std::string&) {}, {}});
        store_faults::Install();
        return Killer(options).Run();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
