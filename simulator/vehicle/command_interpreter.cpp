#include "simulator/vehicle/command_interpreter.h"

#include <charconv>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace simulator::vehicle {

namespace {

constexpr const char* kHelp =
    "clamp on|off; alert OID CODE; immobilizer up|down|vin [TEXT]; connector session "
    "idle|starting|started|rejected; connector activation on|off; connector connection "
    "notAvailable|disconnected|onDemand|connected; connector url URL; ecu up|down; ecu "
    "sw|hw|part [TEXT]; status; help; quit";

}  // namespace

class CommandInterpreter::UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The words of a line, consumed from its front.
class CommandInterpreter::Words {
public:
    explicit Words(std::string line) : mRest(std::move(line)) {
        while (!mRest.empty() && (mRest.back() == '\r' || mRest.back() == ' ')) {
            mRest.pop_back();
        }
        SkipBlanks();
    }

    std::string Next(const char* what) {
        if (mRest.empty()) {
            throw UsageError(std::string(what) + " is missing");
        }
        const std::size_t end = mRest.find(' ');
        std::string word = mRest.substr(0, end);
        mRest.erase(0, word.size());
        SkipBlanks();
        return word;
    }

    /// True for `yes`, false for `no`.
    bool Choice(const char* yes, const char* no) {
        const std::string both = std::string(yes) + " or " + no;
        const std::string word = Next(both.c_str());
        if (word != yes && word != no) {
            throw UsageError("'" + word + "' is neither " + yes + " nor " + no);
        }
        return word == yes;
    }

    std::string Rest() { return std::exchange(mRest, {}); }
    bool IsEmpty() const { return mRest.empty(); }

    void End() const {
        if (!mRest.empty()) {
            throw UsageError("too much: '" + mRest + "'");
        }
    }

private:
    void SkipBlanks() { mRest.erase(0, mRest.find_first_not_of(' ')); }

    std::string mRest;
};

CommandInterpreter::CommandInterpreter(Vehicle& vehicle, std::function<void()> quit)
    : mVehicle(vehicle), mQuit(std::move(quit)) {}

std::string CommandInterpreter::Execute(const std::string& line) {
    Words words(line);
    if (words.IsEmpty()) {
        return {};
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    try {
        return Execute(std::move(words));
    } catch (const std::exception& error) {
        return std::string("error: ") + error.what();
    }
}

std::string CommandInterpreter::Execute(Words words) {
    const std::string command = words.Next("a command");
    std::string output;
    if (command == "clamp") {
        Clamp(words);
    } else if (command == "alert") {
        Alert(words);
    } else if (command == "immobilizer") {
        Immobilizer(words);
    } else if (command == "connector") {
        Connector(words);
    } else if (command == "ecu") {
        Ecu(words);
    } else if (command == "status") {
        words.End();
        output = " " + mVehicle.Status();
    } else if (command == "help") {
        words.End();
        output = std::string(" ") + kHelp;
    } else if (command == "quit") {
        words.End();
        mQuit();
    } else {
        throw UsageError("unknown command '" + command + "'");
    }
    return "ok" + output;
}

void CommandInterpreter::Clamp(Words& words) {
    const bool on = words.Choice("on", "off");
    words.End();
    mVehicle.SetClamp(on);
}

void CommandInterpreter::Alert(Words& words) {
    const std::string operationId = words.Next("the operation id");
    const std::string text = words.Next("the alert code");
    words.End();
    std::uint8_t code = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, code);
    if (result.ec != std::errc() || result.ptr != end) {
        throw UsageError("the alert code is no number from 0 to 255");
    }
    if (mVehicle.SendAlert(operationId, code) == 0) {
        throw UsageError("no subscriber took the alert");
    }
}

void CommandInterpreter::Immobilizer(Words& words) {
    const std::string what = words.Next("up, down or vin");
    if (what == "vin") {
        mVehicle.SetVin(words.Rest());
        return;
    }
    words.End();
    if (what != "up" && what != "down") {
        throw UsageError("'" + what + "' is none of up, down, vin");
    }
    mVehicle.SetImmobilizerAvailable(what == "up");
}

void CommandInterpreter::Connector(Words& words) {
    const std::string what = words.Next("session, activation, connection or url");
    if (what == "session") {
        const std::string name = words.Next("the session status");
        const auto status = ParseSession(name);
        words.End();
        if (!status) {
            throw UsageError("'" + name + "' is none of idle, starting, started, rejected");
        }
        mVehicle.SetSession(*status);
    } else if (what == "activation") {
        const bool activated = words.Choice("on", "off");
        words.End();
        mVehicle.SetActivated(activated);
    } else if (what == "connection") {
        const std::string name = words.Next("the connection state");
        const auto state = ParseConnection(name);
        words.End();
        if (!state) {
            throw UsageError("'" + name +
                             "' is none of notAvailable, disconnected, onDemand, connected");
        }
        mVehicle.SetConnection(*state);
    } else if (what == "url") {
        const std::string url = words.Next("the URL");
        words.End();
        mVehicle.SetUrl(url);
    } else {
        throw UsageError("'" + what + "' is none of session, activation, connection, url");
    }
}

void CommandInterpreter::Ecu(Words& words) {
    const std::string what = words.Next("up, down, sw, hw or part");
    if (what == "sw") {
        mVehicle.SetEcuValue(Vehicle::EcuValue::kSwVersion, words.Rest());
    } else if (what == "hw") {
        mVehicle.SetEcuValue(Vehicle::EcuValue::kHwVersion, words.Rest());
    } else if (what == "part") {
        mVehicle.SetEcuValue(Vehicle::EcuValue::kPartNumber, words.Rest());
    } else if (what == "up" || what == "down") {
        words.End();
        mVehicle.SetDiagnosticInfoAvailable(what == "up");
    } else {
        throw UsageError("'" + what + "' is none of up, down, sw, hw, part");
    }
}

}  // namespace simulator::vehicle
