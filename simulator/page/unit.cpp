#include "simulator/page/unit.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>

#include "simulator/control/control_client.h"
#include "simulator/page/child_process.h"

namespace simulator::page {

namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kTick(100);
constexpr std::uint64_t kTicksOfSimulators = 5;
constexpr std::uint64_t kTicksOfStore = 600;
constexpr std::chrono::seconds kAskLimit(3);
constexpr std::chrono::seconds kStoreLimit(30);
constexpr std::size_t kMaxJournal = 500;
constexpr std::size_t kMaxJournalLine = std::size_t{64} * 1024;
/// What of an entry the page shows; certificates and containers stay in the file.
constexpr std::array<const char*, 16> kJournalMembers{"time",
                                                      "duration_ms",
                                                      "method",
                                                      "target",
                                                      "media_type",
                                                      "status",
                                                      "outcome",
                                                      "reason",
                                                      "vin",
                                                      "activation_reason",
                                                      "operationTypeId",
                                                      "diagnostic_address",
                                                      "hw_version",
                                                      "sw_version",
                                                      "part_number",
                                                      "scenario"};

std::string Text(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::int64_t WallMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

json Fault(const std::string& text) {
    return {{"fault", text}};
}

/// The status of a simulator; one that does not answer has "fault" instead.
json StatusOf(const UnitSettings::Ask& ask) {
    if (!ask) {
        return nullptr;
    }
    try {
        const std::string answer = ask("status");
        json status =
            json::parse(answer.substr(std::min<std::size_t>(3, answer.size())), nullptr, false);
        return status.is_object() ? status : Fault(answer);
    } catch (const std::exception& error) {
        return Fault(error.what());
    }
}

/// The output of `vintrel-provision COMMAND --json`, or its failure.
json AskProvision(std::vector<std::string> argv, const char* command) {
    argv.insert(argv.end(), {command, "--json"});
    try {
        const ProgramResult result = RunToEnd(argv, kStoreLimit);
        json answer = json::parse(result.output, nullptr, false);
        return answer.is_object() ? answer : Fault(result.errors);
    } catch (const std::exception& error) {
        return Fault(error.what());
    }
}

}  // namespace

UnitSettings::Ask AskAt(std::string controlSocket) {
    return [path = std::move(controlSocket)](const std::string& line) {
        return AskControlServer(path, line, kAskLimit);
    };
}

Unit::Unit(boost::asio::io_context& loop, UnitSettings settings)
    : mLoop(loop),
      mSettings(std::move(settings)),
      mTimer(loop),
      mLogTail(mSettings.logFile, [this](std::string_view bytes) { mLog.Feed(bytes); }),
      mJournalLines(kMaxJournalLine),
      mJournalTail(mSettings.journalFile, [this](std::string_view bytes) { ReadJournal(bytes); }),
      mService(loop, mSettings.service, mSettings.logFile, [this] {
          mStoreIsOld = true;
          Update("service", ServiceJson());
      }) {
    mState["service"] = ServiceJson();
}

Unit::~Unit() {
    mAsker.join();
    mStoreReader.join();
}

void Unit::Start(bool startsService) {
    if (startsService) {
        mService.Start();
    }
    Tick();
}

void Unit::Stop() {
    mStopped = true;
    mTimer.cancel();
    mService.Stop();
}

void Unit::Tick() {
    FollowFiles();
    if (mTicks % kTicksOfSimulators == 0) {
        AskSimulators();
    }
    mStoreIsOld = mStoreIsOld || mTicks % kTicksOfStore == 0;
    AskStore();
    ++mTicks;
    mTimer.expires_after(kTick);
    mTimer.async_wait([this](const boost::system::error_code& error) {
        if (!error && !mStopped) {
            Tick();
        }
    });
}

void Unit::FollowFiles() {
    mLogTail.Poll();
    mJournalTail.Poll();
    LogFollower::News news = mLog.TakeNews();
    mStoreIsOld = mStoreIsOld || news.touchesStore;
    if (!mNewJournal.is_null()) {
        news.json["journal"] = std::exchange(mNewJournal, json());
    }
    if (!news.json.empty()) {
        Publish(news.json);
    }
}

void Unit::ReadJournal(std::string_view bytes) {
    mJournalLines.Feed(bytes);
    while (const auto line = mJournalLines.Next()) {
        const json entry = line->whole ? json::parse(line->text, nullptr, false) : json();
        if (entry.is_object()) {
            AddJournalEntry(entry);
        }
    }
}

void Unit::AddJournalEntry(const json& entry) {
    json shown;
    for (const char* member : kJournalMembers) {
        shown[member] = entry.value(member, json());
    }
    mNewJournal.push_back(shown);
    mJournal.push_back(std::move(shown));
    if (mJournal.size() > kMaxJournal) {
        mJournal.pop_front();
    }
}

void Unit::AskSimulators() {
    if (std::exchange(mAsksSimulators, true)) {
        return;
    }
    boost::asio::post(mAsker, [this] {
        json vehicle = StatusOf(mSettings.vehicle);
        json backend = StatusOf(mSettings.backend);
        boost::asio::post(
            mLoop, [this, vehicle = std::move(vehicle), backend = std::move(backend)]() mutable {
                mAsksSimulators = false;
                Update("vehicle", std::move(vehicle));
                Update("backend", std::move(backend));
            });
    });
}

void Unit::AskStore() {
    if (!mStoreIsOld || mAsksStore) {
        return;
    }
    mStoreIsOld = false;
    mAsksStore = true;
    boost::asio::post(mStoreReader, [this] {
        json certificates{{"status", AskProvision(mSettings.provision, "status")},
                          {"verify", AskProvision(mSettings.provision, "verify")}};
        boost::asio::post(mLoop, [this, certificates = std::move(certificates)]() mutable {
            mAsksStore = false;
            Update("certificates", std::move(certificates));
        });
    });
}

void Unit::Execute(const ControlCommand& command, const Done& done) {
    if (command.target == CommandTarget::kService) {
        ExecuteForService(command.line, done);
        return;
    }
    const auto& ask =
        command.target == CommandTarget::kVehicle ? mSettings.vehicle : mSettings.backend;
    if (!ask) {
        done("this page has no control over the backend");
        return;
    }
    boost::asio::post(mAsker, [this, &ask, line = command.line, done] {
        std::string failure;
        try {
            const std::string answer = ask(line);
            failure = answer.rfind("ok", 0) == 0 ? "" : answer;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        boost::asio::post(mLoop, [this, failure = std::move(failure), done] {
            done(failure);
            AskSimulators();
        });
    });
}

void Unit::ExecuteForService(const std::string& line, const Done& done) {
    try {
        if (line == "start") {
            mService.Start();
        } else if (line == "reset") {
            mService.StartWithReset();
        } else {
            mService.Stop();
        }
    } catch (const std::exception& error) {
        done(error.what());
        return;
    }
    done("");
}

json Unit::ServiceJson() const {
    return {{"running", mService.IsRunning()}, {"state", mService.State()}};
}

void Unit::Update(const char* name, json value) {
    json& known = mState[name];
    if (known != value) {
        known = std::move(value);
        Publish({{name, known}});
    }
}

Unit::WatcherId Unit::Watch(const Watcher& watcher) {
    json everything = mState;
    everything.update(mLog.Snapshot());
    everything["journal"] = mJournal;
    everything["name"] = mSettings.name;
    everything["time"] = WallMilliseconds();
    watcher(std::make_shared<const std::string>(Text(everything)));
    const WatcherId id = mNextWatcher++;
    mWatchers[id] = watcher;
    return id;
}

void Unit::Publish(const json& news) {
    if (mWatchers.empty()) {
        return;
    }
    json message = news;
    message["time"] = WallMilliseconds();
    const auto text = std::make_shared<const std::string>(Text(message));
    // A watcher may leave while it is called.
    const auto watchers = mWatchers;
    for (const auto& [id, watcher] : watchers) {
        watcher(text);
    }
}

json Unit::Overview() const {
    const json none = json::object();
    const json& vehicle = mState.contains("vehicle") ? mState.at("vehicle") : none;
    const json& certificates = mState.contains("certificates") ? mState.at("certificates") : none;
    return {{"name", mSettings.name},
            {"vin", vehicle.value("vin", "")},
            {"clamp", vehicle.value("clamp", "")},
            {"service", mService.IsRunning()},
            {"standing", certificates.value(json::json_pointer("/status/standing"), json())}};
}

}  // namespace simulator::page
