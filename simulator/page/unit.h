#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <nlohmann/json.hpp>

#include <posix/line_splitter.h>

#include "simulator/page/control_command.h"
#include "simulator/page/file_tail.h"
#include "simulator/page/log_follower.h"
#include "simulator/page/service_process.h"

namespace simulator::page {

/// Where everything of a unit is.
struct UnitSettings {
    /// Gives a simulator a command and returns its answer, one line each ("ok ...", "error: ...").
    /// May block for some seconds and throw; called on a thread of its own, one at a time.
    using Ask = std::function<std::string(const std::string& line)>;

    /// What the page calls it.
    std::string name;
    Ask vehicle;
    /// Empty: the page has no control over the backend.
    Ask backend;
    /// The service's log: what the page starts writes it, and the page shows it.
    std::string logFile;
    /// Of the backend simulator; empty: none is shown.
    std::string journalFile;
    /// Program and arguments that run the service in its unit, and vintrel-provision there.
    std::vector<std::string> service;
    std::vector<std::string> provision;
};

/// An `Ask` for a control socket.
UnitSettings::Ask AskAt(std::string controlSocket);

/// One unit as the page shows it: its log, journal, simulators and store, followed while they
/// change. Belongs to its loop's thread; what blocks is done on threads of its own.
class Unit {
public:
    using Message = std::shared_ptr<const std::string>;
    /// Receives news as JSON, on the loop's thread.
    using Watcher = std::function<void(const Message&)>;
    using WatcherId = std::uint64_t;
    /// Receives an empty text, or why a command failed. Called on the loop's thread.
    using Done = std::function<void(const std::string& failure)>;

    Unit(boost::asio::io_context& loop, UnitSettings settings);
    ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    /// Follows the unit from here on. Throws std::runtime_error if the service is to be started and
    /// cannot be.
    void Start(bool startsService);
    /// Ends the service, which `IsRunning` reports when it is done. Nothing is followed any more.
    void Stop();
    bool IsRunning() const { return mService.IsRunning(); }

    /// The watcher receives everything known at once, and then each change.
    WatcherId Watch(const Watcher& watcher);
    void Unwatch(WatcherId id) { mWatchers.erase(id); }
    void Publish(const nlohmann::json& news);

    /// `done` is called when the receiver has answered, possibly before this returns.
    void Execute(const ControlCommand& command, const Done& done);

    /// For the list of units: name, VIN, service, ignition, the certificate's standing.
    nlohmann::json Overview() const;

private:
    void Tick();
    void FollowFiles();
    void ReadJournal(std::string_view bytes);
    void AddJournalEntry(const nlohmann::json& entry);
    void AskSimulators();
    void AskStore();
    void ExecuteForService(const std::string& line, const Done& done);
    nlohmann::json ServiceJson() const;
    /// Keeps the value under the name and publishes it, if it differs from the one before.
    void Update(const char* name, nlohmann::json value);

    boost::asio::io_context& mLoop;
    UnitSettings mSettings;
    boost::asio::steady_timer mTimer;
    std::uint64_t mTicks{0};
    bool mStopped{false};

    LogFollower mLog;
    FileTail mLogTail;
    posix::LineSplitter mJournalLines;
    FileTail mJournalTail;
    std::deque<nlohmann::json> mJournal;
    nlohmann::json mNewJournal;
    ServiceProcess mService;

    /// "vehicle", "backend", "service", "certificates" as published last.
    nlohmann::json mState = nlohmann::json::object();
    bool mAsksSimulators{false};
    bool mAsksStore{false};
    bool mStoreIsOld{true};

    std::map<WatcherId, Watcher> mWatchers;
    WatcherId mNextWatcher{1};

    /// A thread each for requests to the simulators, one at a time, and for reading the store.
    boost::asio::thread_pool mAsker{1};
    boost::asio::thread_pool mStoreReader{1};
};

}  // namespace simulator::page
