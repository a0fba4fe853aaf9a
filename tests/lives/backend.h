#pragma once

#include <deque>
#include <memory>
#include <string>

#include "lives/oracle.h"
#include "lives/random.h"

namespace lives {

/// The backend at the far end of a socket pair. For each connection it draws what it will say, in
/// which pieces, and how it goes.
class Backend {
public:
    Backend(Random& random, Oracle& oracle) : mRandom(random), mOracle(oracle) {}
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;
    ~Backend() { Close(); }

    /// A new connection: returns the machine's end. The one before is closed.
    int Connect(bool sound);
    std::shared_ptr<Wire> CurrentWire() const { return mWire; }
    /// Does the next thing of the plan; false if there is nothing to do for now.
    bool Step();
    /// Reads what has come and compares it with what had to come.
    void Read();
    void Close();

private:
    enum class Action { kSend, kAwaitBody, kClose, kHalfClose, kCloseUnread };
    struct Move {
        Action action;
        std::string text;
    };

    void Plan(bool sound);
    void PlanConfirmation();
    void PlanAnswer(bool sound);
    std::string Unsound(const std::string& answer);
    std::string Part(const std::string& text);
    void Send(const std::string& text, bool inPieces);
    void SendPiece(const std::string& text);

    Random& mRandom;
    Oracle& mOracle;
    int mSocket{-1};
    std::shared_ptr<Wire> mWire;
    std::string mReceived;
    std::deque<Move> mPlan;
    /// It will go with bytes unread, so it reads none.
    bool mRude{false};
    int mCertificates{0};
};

}  // namespace lives
