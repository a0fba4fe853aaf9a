#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "benchmarks/framework/harness.h"
#include "benchmarks/vehicle/far_end.h"
#include "benchmarks/vehicle/receivers.h"
#include "logging/qel_logging.h"

namespace {

using vehicle_bench::FarEnd;
using vehicle_bench::Message;
using vehicle_bench::Receiver;

constexpr int kRounds = 11;
constexpr int kEventsPerRound = 200;
constexpr double kNanosecInMicrosec = 1000;
constexpr std::chrono::milliseconds kSettleTime{500};
constexpr std::chrono::seconds kIdleTime{3};

/// The inputs' sockets and configuration, in a directory of their own.
class Surroundings {
public:
    Surroundings() : mPath(std::filesystem::temp_directory_path() / "vintrel-bench-XXXXXX") {
        framework_bench::Check(mkdtemp(mPath.data()) != nullptr, "mkdtemp");
        std::ofstream(mPath + "/ClientConfig.json")
            << R"({"socketPath":")" + mPath + R"(/access.sock"})";
        setenv("WEXA_CLIENT_CONFIG", (mPath + "/ClientConfig.json").c_str(), 1);
        setenv("VONTA_SOCKET_DIR", mPath.c_str(), 1);
    }
    ~Surroundings() { std::filesystem::remove_all(mPath); }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    const std::string& Path() const { return mPath; }

private:
    std::string mPath;
};

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void Print(const std::string& item, const std::string& unit, double value) {
    std::cout << nlohmann::json{{"item", item}, {"unit", unit}, {"value", value}} << std::endl;
}

/// The median time from the far end's write to the delivery, in microseconds. Each event is written
/// when the one before has been delivered.
double TimeRound(const FarEnd& farEnd, Receiver& receiver, Message message) {
    std::vector<double> times;
    farEnd.Write(message);
    receiver.Receive(kEventsPerRound, [&] {
        const auto time = vehicle_bench::NowNanosec() - farEnd.WrittenAt();
        times.push_back(static_cast<double>(time) / kNanosecInMicrosec);
        if (times.size() < kEventsPerRound) {
            farEnd.Write(message);
        }
    });
    return Median(std::move(times));
}

void TimeDelivery(const FarEnd& farEnd, const std::string& item, Receiver& ours, Receiver& bare,
                  Message message) {
    std::vector<double> oursTimes;
    std::vector<double> bareTimes;
    for (int round = 0; round < kRounds; ++round) {
        oursTimes.push_back(TimeRound(farEnd, ours, message));
        bareTimes.push_back(TimeRound(farEnd, bare, Message::kBare));
    }
    Print(item, "us", Median(std::move(oursTimes)));
    Print(item + ", bare", "us", Median(std::move(bareTimes)));
}

void TimeDeliveries(const FarEnd& farEnd) {
    const auto bare = vehicle_bench::MakeBareReceiver(farEnd.BareSocket());
    TimeDelivery(farEnd, "clamp", *vehicle_bench::MakeClampReceiver(), *bare, Message::kClamp);
    TimeDelivery(farEnd, "immobilizer", *vehicle_bench::MakeImmobilizerReceiver(), *bare,
                 Message::kImmobilizer);
    TimeDelivery(farEnd, "TLS alert", *vehicle_bench::MakeAlertReceiver(), *bare, Message::kAlert);
}

/// The number behind `key` in a status file of the kernel.
double ReadStatus(const std::string& path, const std::string& key) {
    std::ifstream status(path);
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key + ":", 0) == 0) {
            return std::stod(line.substr(key.size() + 1));
        }
    }
    throw framework_bench::CheckFailure(path + " has no " + key);
}

/// How often the threads of this process, but for the calling one, have gone to sleep so far.
double CountSleeps() {
    double sleeps = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() != std::to_string(getpid())) {
            sleeps += ReadStatus(task.path() / "status", "voluntary_ctxt_switches");
        }
    }
    return sleeps;
}

std::vector<std::unique_ptr<Receiver>> MakeReceivers(const FarEnd& farEnd, bool bare) {
    std::vector<std::unique_ptr<Receiver>> receivers;
    if (bare) {
        for (int input = 0; input < 3; ++input) {
            receivers.push_back(vehicle_bench::MakeBareReceiver(farEnd.BareSocket()));
        }
        return receivers;
    }
    receivers.push_back(vehicle_bench::MakeClampReceiver());
    receivers.push_back(vehicle_bench::MakeImmobilizerReceiver());
    receivers.push_back(vehicle_bench::MakeAlertReceiver());
    return receivers;
}

/// What three inputs hold and do while nothing comes.
void MeasureRest(const FarEnd& farEnd, bool bare) {
    const std::string own = "/proc/self/status";
    const double threads = ReadStatus(own, "Threads");
    const double memory = ReadStatus(own, "RssAnon");
    const auto receivers = MakeReceivers(farEnd, bare);
    std::this_thread::sleep_for(kSettleTime);
    Print("at rest: threads", "", ReadStatus(own, "Threads") - threads);
    Print("at rest: memory", "KiB", ReadStatus(own, "RssAnon") - memory);
    const double sleeps = CountSleeps();
    std::this_thread::sleep_for(kIdleTime);
    Print("at rest: wake-ups in 3 s", "", CountSleeps() - sleeps);
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        CLI::App app("The vehicle's inputs and a bare hand-over, measured");
        std::string work;
        app.add_option("work", work, "delivery, rest, or bare-rest")
            ->required()
            ->check(CLI::IsMember({"delivery", "rest", "bare-rest"}));
        CLI11_PARSE(app, argc, argv);
        qel_logging::QELLogging::InitLogging("BNCH", qel_logging::EQELLogLevel::kWarning);
        const Surroundings surroundings;
        const FarEnd farEnd(surroundings.Path());
        if (work == "delivery") {
            TimeDeliveries(farEnd);
        } else {
            MeasureRest(farEnd, work == "bare-rest");
        }
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
