#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lives/connector_library.h"
#include "lives/machine_model.h"

namespace lives {

/// The tables of the connector machine.
class ConnectorModel : public MachineModel {
public:
    ConnectorModel(Oracle& oracle, ConnectorLibrary& library)
        : MachineModel(oracle, "ZemConnectorFsm"), mLibrary(library) {}

    void Construct() { Enter("FsmStateNotStarted"); }
    bool Start(const std::shared_ptr<MachineModel>& target);
    void Stop();
    void GetUrl();
    bool Connect(const std::string& host, int port, const std::shared_ptr<MachineModel>& exchange);

    /// What the library has called back with.
    void SocketResult(int id, int status, const std::shared_ptr<Wire>& wire);

    bool Activated() const { return mActivated; }

private:
    void Handle(const Event& event) override;
    void HandleStatus(int status);
    void HandleUrl(const Event& event);
    void HandleSocket(const Event& event);
    void Report(int info, int number, bool good = false, const std::string& text = {});

    ConnectorLibrary& mLibrary;
    std::weak_ptr<MachineModel> mTarget;
    bool mStarted{false};
    std::map<int, std::shared_ptr<MachineModel>> mAttempts;
    int mStatus{0};
    bool mActivated{false};
    bool mQueryPending{false};
    int mNextAttempt{0};
};

/// Where a URL leads.
struct Destination {
    std::string host;
    int port{0};
    std::string path;
};

/// URLs, and what has to come out of each.
struct Url {
    std::string text;
    /// Lines of the log on the way, letter of the level first.
    std::vector<std::string> lines;
    bool good;
    Destination destination;
};

inline const std::vector<Url> kUrls{
    {"http://backend:8080/enrol", {}, true, {"backend", 8080, "/enrol"}},
    {"https://second.example/a?b=c",
     {"I Received URL missing port number. Default HTTPS port used: 443"},
     true,
     {"second.example", 443, "/a?b=c"}},
    {"http://third",
     {"I Received URL missing port number. Default HTTP port used: 80"},
     true,
     {"third", 80, "/"}},
    {"ftp://fourth:65535", {}, true, {"fourth", 65535, "/"}},
    {"backend:80/x", {"E URL parsing failed! Protocol not found!"}, false, {}},
    {"http://:80/x", {"E URL parsing failed! Domain not found!"}, false, {}},
    {"http://a:0/", {"E Invalid port number: '0'"}, false, {}},
    {"http://a:x/",
     {"E URL parsing failed! Not able to parse port number: 'x'", "E GetUrlData: exception:stoi"},
     false,
     {}},
    {"ftp://backend/",
     {"E URL parsing failed! Missing port number and invalid protocol!"},
     false,
     {}},
};

/// The tables of one exchange with the backend, and of the socket machine as the exchange uses it.
class ExchangeModel : public MachineModel {
public:
    /// A body of this size or less always fits into the socket's buffer; a longer one never.
    static constexpr std::size_t kFits = 2000;

    ExchangeModel(Oracle& oracle, const std::shared_ptr<MachineModel>& target,
                  ConnectorModel& connector)
        : MachineModel(oracle, "BackendRequestHandler"), mTarget(target), mConnector(connector) {}

    void Start(const std::string& body, const Destination& destination);
    /// The socket machine was told that there is something on its socket.
    void ReadSocket();

private:
    void Handle(const Event& event) override;
    void Connect();
    void HandleSocket(const Event& event);
    void HandleConfirmation(const Event& event);
    void HandleAnswer();
    bool Parse();
    bool Write(const std::string& text);
    void End(int code, const std::string& response = {});

    std::weak_ptr<MachineModel> mTarget;
    ConnectorModel& mConnector;
    Destination mDestination;
    std::string mBody;
    std::shared_ptr<Wire> mWire;
    bool mStreamActive{false};
    std::string mReceived;
    int mStatus{0};
    std::string mAnswerHeader;
    std::string mAnswerBody;
};

}  // namespace lives
