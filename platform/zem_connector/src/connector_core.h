#pragma once

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <zem_connector/zem_connector.h>
#include <zem_connector_host/connector_file.h>

#include "file_watcher.h"
#include "name_lookup.h"
#include "socket_attempt.h"
#include "tls_relay.h"

namespace zem_connector {

/// The library's worker: watches the file, answers queries and connects sockets on its own thread.
///
/// The thread shares the ownership with the `ZemConnector`, since a callback may destroy that.
/// Operations that return a `bool` queue their work; every callback comes from `Run`, and none
/// once `Close` was called, except for the one that is running.
class ConnectorCore : public std::enable_shared_from_this<ConnectorCore> {
public:
    /// `sessionCallback` is not owned and may be null. `lookup` runs on
    /// detached threads.
    ConnectorCore(std::string path, ZemSessionCallbackIf* sessionCallback, NameLookup lookup);

    /// Reads the file and begins to watch it. To be called once, before `Run`.
    SessionStatus Open();

    /// The thread's function; returns after `Close`.
    void Run();

    /// Any thread; does not wait.
    void Close();

    /// True on the thread that is in `Run`.
    bool IsLibraryThread() const;

    bool Subscribe(std::string transactionType, ZemServiceControllerCallbackIf* callback);
    bool QueryUrl(std::string operationId, ZemServiceControllerCallbackIf* callback);
    /// Connects by proxy and with TLS as the operation's entry in the file demands.
    bool Connect(std::string operationId, std::string host, unsigned short port,
                 ZemSocketCallbackIf* callback);

private:
    struct Subscription {
        std::string transactionType;
        ZemServiceControllerCallbackIf* callback{nullptr};
        host::TransactionType delivered;
        std::int32_t id{0};
        std::int32_t sequence{0};
    };

    struct UrlQuery {
        std::string operationId;
        ZemServiceControllerCallbackIf* callback{nullptr};
        std::unique_ptr<boost::asio::steady_timer> timer;
    };

    /// False if the file is unusable; logs the cause and keeps the last good state.
    bool Load();
    void OnFileChanged();
    host::TransactionType StateOf(const std::string& transactionType) const;

    void AddSubscription(std::string transactionType, ZemServiceControllerCallbackIf* callback);
    void DeliverSession(const Subscription& subscription);
    void DeliverActivation(Subscription& subscription, bool activated);
    void DeliverConnection(Subscription& subscription,
                           ZemServiceControllerCallbackIf::SCConnectionState connectionState);
    void DeliverChanges(Subscription& subscription);

    void AddUrlQuery(std::string operationId, ZemServiceControllerCallbackIf* callback);
    void AnswerUrlQuery(int id);
    void AnswerWaitingUrlQueries();
    bool CanAnswerUrlQueries() const;

    void StartAttempt(const std::string& operationId, const std::string& host, unsigned short port,
                      ZemSocketCallbackIf* callback);
    void StartLookup(int attemptId, const std::string& host, unsigned short port);
    /// Throws std::runtime_error if the operation's TLS settings are unusable.
    ConnectionPlan PlanFor(const std::string& operationId, ProxyTarget target) const;
    void OnAttemptDone(int attemptId, const std::string& peer, ConnectionResult result,
                       ZemSocketCallbackIf* callback);
    ConnectionResult StartRelay(const std::string& peer, std::unique_ptr<TlsStream> stream);

    /// Runs a callback, unless closed.
    template <typename Callback>
    void Deliver(const Callback& callback);

    boost::asio::io_context mContext;
    std::string mPath;
    ZemSessionCallbackIf* mSessionCallback;
    NameLookup mLookup;
    FileWatcher mWatcher;

    std::atomic<bool> mOpen{false};
    std::atomic<std::thread::id> mThreadId{};
    std::atomic<SessionStatus> mSession{SessionStatus::kStarting};
    std::atomic<int> mAttemptCount{0};
    /// Shared with detached look-ups, which may outlive this object.
    std::shared_ptr<std::atomic<int>> mLookupCount;

    host::ConnectorFile mFile;
    std::list<Subscription> mSubscriptions;
    std::map<int, UrlQuery> mUrlQueries;
    std::map<int, std::shared_ptr<SocketAttempt>> mAttempts;
    std::map<int, std::shared_ptr<TlsRelay>> mRelays;
    /// For the keys of the three above.
    int mNextId{0};
};

}  // namespace zem_connector
