// Does the same work on this project's framework and on what else there is, round by round in turn,
// and prints one JSON object for each item and contender with the median of its rounds.

#include <algorithm>
#include <csignal>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <malloc.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "benchmarks/framework/contender.h"
#include "logging/qel_logging.h"

namespace {

using framework_bench::Contender;
using framework_bench::IdleFigures;

constexpr int kSetAndClears = 10;

/// What one measurement yields: a figure for each item that it serves.
using Figures = std::vector<double>;

struct Item {
    std::string name;
    std::string unit;
};

struct Measurement {
    std::string contender;
    std::function<Figures()> run;
};

struct Task {
    std::vector<Item> items;
    std::vector<Measurement> measurements;
    /// It mostly waits, and its figures hardly vary: a few rounds will do.
    bool waits;
};

struct NamedContender {
    std::string name;
    std::unique_ptr<Contender> contender;
};

using Work = std::function<Figures(Contender&)>;

Task MakeTask(std::vector<Item> items, const std::vector<NamedContender>& contenders,
              const Work& work, bool waits) {
    Task task{std::move(items), {}, waits};
    for (const NamedContender& each : contenders) {
        task.measurements.push_back(
            {each.name, [work, contender = each.contender.get()] { return work(*contender); }});
    }
    return task;
}

std::vector<Task> MakeTasks(const std::vector<NamedContender>& contenders) {
    using namespace framework_bench;
    std::vector<Task> tasks;
    const auto add = [&](const std::string& name, const std::function<double(Contender&)>& work) {
        tasks.push_back(MakeTask(
            {{name, "ns"}}, contenders,
            [work](Contender& contender) { return Figures{work(contender)}; }, false));
    };
    const auto addIdle = [&](const std::string& name,
                             const std::function<IdleFigures(Contender&)>& work) {
        tasks.push_back(MakeTask(
            {{name + ": wake-ups", "count"}, {name + ": CPU time", "us"}}, contenders,
            [work](Contender& contender) {
                const IdleFigures figures = work(contender);
                return Figures{figures.wakeUps, figures.cpuMicrosec};
            },
            true));
    };
    add("self-post", [](Contender& contender) { return contender.SelfPost(); });
    add("drain", [](Contender& contender) { return contender.Drain(); });
    add("timers", [](Contender& contender) { return contender.Timers(); });
    add("set and clear, oldest first", [](Contender& contender) {
        // A single one is over too soon to be timed well.
        double sum = 0;
        for (int i = 0; i < kSetAndClears; ++i) {
            sum += contender.SetAndClear(true);
        }
        return sum / kSetAndClears;
    });
    add("set and clear, newest first",
        [](Contender& contender) { return contender.SetAndClear(false); });
    add("async", [](Contender& contender) { return contender.Async(kAsyncFlood); });
    add("async ping-pong", [](Contender& contender) { return contender.Async(kAsyncPingPong); });
    add("stream, reads of 1024", [](Contender& contender) { return contender.ReadStream(1024); });
    add("stream, reads of 4096", [](Contender& contender) { return contender.ReadStream(4096); });
    addIdle("idle with a 100 ms timer",
            [](Contender& contender) { return contender.IdleWithTimer(); });
    addIdle("idle with nothing due", [](Contender& contender) { return contender.Idle(); });
    tasks.push_back({{{"disabled log line", "ns"}},
                     {{"ours", [] { return Figures{TimeDisabledLogLine()}; }},
                      {"level test", [] { return Figures{TimeLevelTest()}; }},
                      {"atomic test", [] { return Figures{TimeAtomicLevelTest()}; }}},
                     false});
    return tasks;
}

double Median(Figures figures) {
    std::sort(figures.begin(), figures.end());
    return figures.at(figures.size() / 2);
}

constexpr int kRoundsOfWaiting = 5;
constexpr int kKeptHeapBytes = 1 << 30;

/// Gives each measurement the same heap, so that nobody's objects lie in the order in which
/// somebody else's were freed: `mallopt` joins what was left in small pieces. All of it is kept.
void TidyHeap() {
    mallopt(M_TRIM_THRESHOLD, kKeptHeapBytes);
}

/// Runs the rounds of one task and prints its figures.
void Run(const Task& task, int wantedRounds) {
    const int rounds = task.waits ? std::min(wantedRounds, kRoundsOfWaiting) : wantedRounds;
    std::vector<std::vector<Figures>> results(task.measurements.size(),
                                              std::vector<Figures>(task.items.size()));
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < task.measurements.size(); ++i) {
            // Each comes first in its turn.
            const std::size_t who =
                (i + static_cast<std::size_t>(round)) % task.measurements.size();
            TidyHeap();
            const Figures figures = task.measurements[who].run();
            for (std::size_t item = 0; item < task.items.size(); ++item) {
                results[who][item].push_back(figures.at(item));
            }
        }
    }
    for (std::size_t item = 0; item < task.items.size(); ++item) {
        for (std::size_t who = 0; who < task.measurements.size(); ++who) {
            std::cout << nlohmann::json{{"item", task.items[item].name},
                                        {"unit", task.items[item].unit},
                                        {"contender", task.measurements[who].contender},
                                        {"median", Median(results[who][item])}}
                      << std::endl;
        }
    }
}

/// Ends the program when an item waits in vain for work that was lost, naming the item.
class Guard {
public:
    explicit Guard(const std::string& item) {
        mMessage = item + ": not done after " + std::to_string(kLimitSeconds) + " s\n";
        std::signal(SIGALRM, &Guard::End);
        alarm(kLimitSeconds);
    }
    ~Guard() { alarm(0); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    static constexpr unsigned int kLimitSeconds = 120;

    static void End(int /*signal*/) {
        const ssize_t written = write(STDERR_FILENO, mMessage.data(), mMessage.size());
        _exit(written >= 0 ? 1 : 2);
    }

    static inline std::string mMessage;
};

/// True if the task has done its work.
bool RunChecked(const Task& task, int rounds) {
    const Guard guard(task.items.front().name);
    try {
        Run(task, rounds);
        return true;
    } catch (const std::exception& exception) {
        std::cerr << task.items.front().name << ": " << exception.what() << std::endl;
        return false;
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        CLI::App app("The framework's work, done by it and by others, timed");
        int rounds = 11;
        std::string onlyItem;
        std::string onlyContender;
        app.add_option("--rounds", rounds, "Rounds to take the median of")
            ->check(CLI::Range(1, 1000));
        app.add_option("--item", onlyItem, "Only the items whose name begins so");
        app.add_option("--contender", onlyContender, "Only this contender");
        CLI11_PARSE(app, argc, argv);

        qel_logging::QELLogging::InitLogging("BNCH", qel_logging::EQELLogLevel::kWarning);
        // The service has threads. Before the first one the C++ library would count references
        // without atomic operations.
        std::thread([] {}).join();

        std::vector<NamedContender> contenders;
        const auto add = [&](const std::string& name, std::unique_ptr<Contender> contender) {
            if (onlyContender.empty() || onlyContender == name) {
                contenders.push_back({name, std::move(contender)});
            }
        };
        add("ours", framework_bench::MakeOurs());
        add("bare", framework_bench::MakeBare());
        add("libuv", framework_bench::MakeLibuv());
        add("asio", framework_bench::MakeAsio());
        bool good = true;
        for (const Task& task : MakeTasks(contenders)) {
            if (task.items.front().name.rfind(onlyItem, 0) == 0) {
                good = RunChecked(task, rounds) && good;
            }
        }
        return good ? 0 : 1;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
