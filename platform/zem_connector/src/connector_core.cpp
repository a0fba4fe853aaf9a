#include "connector_core.h"

#include <array>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <pthread.h>
#include <sys/socket.h>

#include "host_name.h"
#include "library_log.h"
#include "read_file.h"

namespace zem_connector {

namespace {

using SCConnectionState = ZemServiceControllerCallbackIf::SCConnectionState;

constexpr int kMaxAttempts = 16;
constexpr std::size_t kMaxRelays = 64;
constexpr std::size_t kMaxHostSize = 255;
constexpr std::uint8_t kUrlFailed = 1;
constexpr SCDisabledReasonInfo kSwitchedOff{1, 0};
/// A transaction type that the file does not name.
constexpr host::TransactionType kUnknownType{false, SCConnectionState::kNotAvailable};

/// A look-up that throws is one that failed.
NameLookupResult LookUp(const NameLookup& lookup, const std::string& host, unsigned short port) {
    try {
        return lookup(host, port);
    } catch (const std::exception& exception) {
        return {{}, host::kSocketFailed, exception.what()};
    }
}

/// OpenSSL's socket writes raise SIGPIPE when the peer has closed. Blocked, the signal stays
/// pending on this thread and never reaches the process's handler.
void BlockBrokenPipes() {
    sigset_t signals{};
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

ConnectorCore::ConnectorCore(std::string path, ZemSessionCallbackIf* sessionCallback,
                             NameLookup lookup)
    : mPath(std::move(path)),
      mSessionCallback(sessionCallback),
      mLookup(std::move(lookup)),
      mWatcher(mContext, mPath, [this] { OnFileChanged(); }),
      mLookupCount(std::make_shared<std::atomic<int>>(0)) {
    mFile.sessionStatus = SessionStatus::kStarting;
}

SessionStatus ConnectorCore::Open() {
    mWatcher.Start();
    Load();
    mSession = mFile.sessionStatus;
    mOpen = mSession != SessionStatus::kRejected;
    // Idle would mean that no session will start; but a change of the file may start one any time.
    return mSession == SessionStatus::kIdle ? SessionStatus::kStarting : mSession.load();
}

void ConnectorCore::Run() {
    mThreadId = std::this_thread::get_id();
    BlockBrokenPipes();
    const auto work = boost::asio::make_work_guard(mContext);
    mContext.run();
    if (!mRelays.empty()) {
        Log().Warn(std::to_string(mRelays.size()) + " protected connections end with the session");
    }
    mRelays.clear();
    mAttempts.clear();
}

void ConnectorCore::Close() {
    mOpen = false;
    mContext.stop();
}

bool ConnectorCore::IsLibraryThread() const {
    return mThreadId.load() == std::this_thread::get_id();
}

template <typename Callback>
void ConnectorCore::Deliver(const Callback& callback) {
    if (!mOpen) {
        return;
    }
    try {
        callback();
    } catch (const std::exception& exception) {
        Log().Error(std::string("A callback threw: ") + exception.what());
    }
}

bool ConnectorCore::Load() {
    try {
        std::vector<std::string> warnings;
        host::ParseConnectorFile(ReadFile(mPath, host::ConnectorFile::kMaxSize), mFile, warnings);
        for (const auto& warning : warnings) {
            Log().Warn(mPath + ": " + warning);
        }
        for (const auto& operation : mFile.UnprotectedHttpsOperations()) {
            Log().Warn("The URL of " + operation + " says https, but its sockets are in clear");
        }
        return true;
    } catch (const std::runtime_error& error) {
        Log().Error(mPath + ": " + error.what() + "; the last good state stays");
        return false;
    }
}

void ConnectorCore::OnFileChanged() {
    if (!Load()) {
        return;
    }
    const bool sessionChanged = mSession.exchange(mFile.sessionStatus) != mFile.sessionStatus;
    if (sessionChanged && mSessionCallback != nullptr) {
        Deliver([this] { mSessionCallback->ZemConnectorStatus(mFile.sessionStatus); });
    }
    for (auto& subscription : mSubscriptions) {
        if (sessionChanged) {
            DeliverSession(subscription);
        }
        DeliverChanges(subscription);
    }
    AnswerWaitingUrlQueries();
}

host::TransactionType ConnectorCore::StateOf(const std::string& transactionType) const {
    const auto found = mFile.transactionTypes.find(transactionType);
    return found == mFile.transactionTypes.end() ? kUnknownType : found->second;
}

bool ConnectorCore::Subscribe(std::string transactionType,
                              ZemServiceControllerCallbackIf* callback) {
    if (!mOpen || callback == nullptr) {
        return false;
    }
    boost::asio::post(mContext, [this, type = std::move(transactionType), callback]() mutable {
        AddSubscription(std::move(type), callback);
    });
    return true;
}

void ConnectorCore::AddSubscription(std::string transactionType,
                                    ZemServiceControllerCallbackIf* callback) {
    // A repeated subscription replaces the first: the current state again, each change only once.
    mSubscriptions.remove_if([&](const Subscription& subscription) {
        return subscription.callback == callback && subscription.transactionType == transactionType;
    });
    Subscription& subscription = mSubscriptions.emplace_back();
    subscription.transactionType = std::move(transactionType);
    subscription.callback = callback;
    subscription.id = static_cast<std::int32_t>(mSubscriptions.size());
    const host::TransactionType state = StateOf(subscription.transactionType);
    DeliverSession(subscription);
    DeliverActivation(subscription, state.activated);
    DeliverConnection(subscription, state.connectionState);
}

void ConnectorCore::DeliverSession(const Subscription& subscription) {
    Deliver([&] {
        subscription.callback->ZemSCSessionStatus(mFile.sessionStatus == SessionStatus::kStarted
                                                      ? SCSessionStatus::kActive
                                                      : SCSessionStatus::kInactive);
    });
}

void ConnectorCore::DeliverChanges(Subscription& subscription) {
    const host::TransactionType state = StateOf(subscription.transactionType);
    if (state.activated != subscription.delivered.activated) {
        DeliverActivation(subscription, state.activated);
    }
    if (state.connectionState != subscription.delivered.connectionState) {
        DeliverConnection(subscription, state.connectionState);
    }
}

void ConnectorCore::DeliverActivation(Subscription& subscription, bool activated) {
    subscription.delivered.activated = activated;
    SCActivationStateUpdate update;
    update.subscriptionId = subscription.id;
    update.sequence = ++subscription.sequence;
    update.transactionType = subscription.transactionType;
    if (!activated) {
        update.disabledReasons.push_back(kSwitchedOff);
    }
    Deliver([&] { subscription.callback->ZemSCActivationState(update); });
}

void ConnectorCore::DeliverConnection(Subscription& subscription,
                                      SCConnectionState connectionState) {
    subscription.delivered.connectionState = connectionState;
    ZemServiceControllerCallbackIf::SCConnectionStateUpdate update;
    update.subscriptionId = subscription.id;
    update.sequence = ++subscription.sequence;
    update.transactionType = subscription.transactionType;
    update.connectionState = connectionState;
    Deliver([&] { subscription.callback->ZemSCConnectionState(update); });
}

bool ConnectorCore::QueryUrl(std::string operationId, ZemServiceControllerCallbackIf* callback) {
    if (!mOpen || callback == nullptr) {
        return false;
    }
    boost::asio::post(mContext, [this, id = std::move(operationId), callback]() mutable {
        AddUrlQuery(std::move(id), callback);
    });
    return true;
}

bool ConnectorCore::CanAnswerUrlQueries() const {
    return mFile.sessionStatus == SessionStatus::kStarted ||
           mFile.sessionStatus == SessionStatus::kRejected;
}

void ConnectorCore::AddUrlQuery(std::string operationId, ZemServiceControllerCallbackIf* callback) {
    const int id = mNextId++;
    UrlQuery& query = mUrlQueries[id];
    query.operationId = std::move(operationId);
    query.callback = callback;
    if (CanAnswerUrlQueries()) {
        AnswerUrlQuery(id);
        return;
    }
    query.timer = std::make_unique<boost::asio::steady_timer>(mContext, mFile.urlTimeout);
    query.timer->async_wait([this, id](const boost::system::error_code& error) {
        if (!error) {
            AnswerUrlQuery(id);
        }
    });
}

void ConnectorCore::AnswerUrlQuery(int id) {
    const auto found = mUrlQueries.find(id);
    if (found == mUrlQueries.end()) {
        return;
    }
    const UrlQuery query = std::move(found->second);
    mUrlQueries.erase(found);

    SCUrlResult result;
    result.operationTypeId = query.operationId;
    result.result = kUrlFailed;
    const auto url = mFile.invocationUrls.find(query.operationId);
    if (mFile.sessionStatus != SessionStatus::kStarted) {
        Log().Warn("No session to get the URL of " + query.operationId);
    } else if (url == mFile.invocationUrls.end()) {
        Log().Warn("No URL for the operation " + query.operationId);
    } else {
        result.result = 0;
        result.url = url->second;
    }
    Deliver([&] { query.callback->ZemSCInvocationURL(result); });
}

void ConnectorCore::AnswerWaitingUrlQueries() {
    while (CanAnswerUrlQueries() && !mUrlQueries.empty()) {
        AnswerUrlQuery(mUrlQueries.begin()->first);
    }
}

bool ConnectorCore::Connect(std::string operationId, std::string host, unsigned short port,
                            ZemSocketCallbackIf* callback) {
    const bool wellFormed = !host.empty() && host.size() <= kMaxHostSize && port != 0;
    if (!mOpen || callback == nullptr || !wellFormed || mSession != SessionStatus::kStarted) {
        return false;
    }
    if (mAttemptCount >= kMaxAttempts || *mLookupCount >= kMaxAttempts) {
        Log().Warn("Too many socket attempts are under way");
        return false;
    }
    ++mAttemptCount;
    boost::asio::post(mContext,
                      [this, operation = std::move(operationId), name = std::move(host), port,
                       callback] { StartAttempt(operation, name, port, callback); });
    return true;
}

void ConnectorCore::StartAttempt(const std::string& operationId, const std::string& host,
                                 unsigned short port, ZemSocketCallbackIf* callback) {
    const int id = mNextId++;
    const std::string peer = host + ":" + std::to_string(port) + " for " + operationId;
    const auto done = [this, id, peer, callback](ConnectionResult result) {
        OnAttemptDone(id, peer, std::move(result), callback);
    };
    ConnectionPlan plan;
    try {
        plan = PlanFor(operationId, {host, port});
    } catch (const std::runtime_error& error) {
        ConnectionResult failed;
        failed.detail = error.what();
        done(std::move(failed));
        return;
    }
    const std::string nextHost = plan.NextHost();
    const unsigned short nextPort = plan.NextPort();
    const auto attempt = std::make_shared<SocketAttempt>(mContext, std::move(plan), done);
    mAttempts[id] = attempt;
    attempt->Start(mFile.connectTimeout);
    if (!IsHostName(host)) {
        attempt->UseAddresses({{}, host::kSocketNameNotFound, "not a host's name"});
        return;
    }
    StartLookup(id, nextHost, nextPort);
}

ConnectionPlan ConnectorCore::PlanFor(const std::string& operationId, ProxyTarget target) const {
    ConnectionPlan plan;
    const auto found = mFile.operations.find(operationId);
    if (found != mFile.operations.end()) {
        plan.proxy = found->second.proxy;
        const auto& tls = found->second.tls;
        plan.tls = tls ? NewTlsClient(*tls, target.host) : nullptr;
    }
    plan.target = std::move(target);
    return plan;
}

void ConnectorCore::StartLookup(int attemptId, const std::string& host, unsigned short port) {
    boost::system::error_code notNumeric;
    const auto address = boost::asio::ip::make_address(host, notNumeric);
    if (!notNumeric) {
        const auto attempt = mAttempts.at(attemptId);
        attempt->UseAddresses({{{address, port}}, host::kSocketConnected, {}});
        return;
    }
    // The system's resolver can't be interrupted, so its thread is detached and holds only a weak
    // reference to this object.
    const auto run = [weak = weak_from_this(), count = mLookupCount, lookup = mLookup, attemptId,
                      host, port] {
        const NameLookupResult result = LookUp(lookup, host, port);
        --*count;
        const auto self = weak.lock();
        if (!self) {
            return;
        }
        boost::asio::post(self->mContext, [core = self.get(), attemptId, result] {
            const auto found = core->mAttempts.find(attemptId);
            if (found != core->mAttempts.end()) {
                const auto attempt = found->second;
                attempt->UseAddresses(result);
            }
        });
    };
    ++*mLookupCount;
    try {
        std::thread(run).detach();
    } catch (const std::system_error& error) {
        --*mLookupCount;
        const auto attempt = mAttempts.at(attemptId);
        attempt->UseAddresses({{}, host::kSocketFailed, error.what()});
    }
}

void ConnectorCore::OnAttemptDone(int attemptId, const std::string& peer, ConnectionResult result,
                                  ZemSocketCallbackIf* callback) {
    mAttempts.erase(attemptId);
    --mAttemptCount;
    if (result.stream) {
        result = StartRelay(peer, std::move(result.stream));
    }
    if (result.status != host::kSocketConnected) {
        Log().Warn("Can't connect to " + peer + ": " + result.detail);
    }
    // From the call on the receiver owns the descriptor, even if it throws.
    Deliver([&] { callback->ZemSocketResult({result.status, result.descriptor.Release()}); });
}

ConnectionResult ConnectorCore::StartRelay(const std::string& peer,
                                           std::unique_ptr<TlsStream> stream) {
    ConnectionResult result;
    if (mRelays.size() >= kMaxRelays) {
        result.detail = "too many protected connections";
        return result;
    }
    std::array<int, 2> ends{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        result.detail = std::generic_category().message(errno);
        return result;
    }
    result.descriptor = posix::UniqueFd(ends[1]);
    Log().Info("Connected to " + peer + " by " + stream->Version());
    TlsRelay::Client ours(mContext, boost::asio::local::stream_protocol(), ends[0]);
    const int id = mNextId++;
    const auto relay =
        std::make_shared<TlsRelay>(mContext, peer, std::move(stream), std::move(ours),
                                   mFile.closeTimeout, [this, id] { mRelays.erase(id); });
    mRelays[id] = relay;
    relay->Start();
    result.status = host::kSocketConnected;
    return result;
}

}  // namespace zem_connector
