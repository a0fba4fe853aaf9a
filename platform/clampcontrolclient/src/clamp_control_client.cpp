#include <atomic>
#include <exception>
#include <mutex>
#include <utility>

#include <clampcontrolclient/clamp_control_client.h>
#include <service_access/client_config.h>
#include <service_access/connection.h>
#include <service_access/log.h>
#include <service_access/service_names.h>

namespace clampcontrolclient {

namespace {

constexpr char kConfigPath[] = "/var/run/qel/config/wexa-client/ClientConfig.json";

/// Who is called back. Shared with the connection's callbacks.
using Receiver = std::atomic<ClampControlCallbackIf*>;

service_access::ServiceObserver MakeObserver(const std::shared_ptr<Receiver>& receiver) {
    const auto notify = [receiver](const auto& notification) {
        if (auto* const callback = receiver->load()) {
            notification(*callback);
        }
    };
    service_access::ServiceObserver observer;
    observer.available = [notify] {
        notify([](ClampControlCallbackIf& each) { each.ConnectionStateNotification(true); });
    };
    observer.unavailable = [notify] {
        notify([](ClampControlCallbackIf& each) { each.ConnectionStateNotification(false); });
    };
    observer.subscribed = [notify] {
        notify([](ClampControlCallbackIf& each) { each.ClampControlSubscribedNotification(); });
    };
    observer.elementChanged = [notify](const std::string& element, bool value) {
        if (element == service_access::kClamp15Element) {
            notify([value](ClampControlCallbackIf& each) { each.ClampControlNotification(value); });
        }
    };
    return observer;
}

}  // namespace

class ClampControlClient::Impl {
public:
    std::shared_ptr<service_access::Connection> Connection() const {
        const std::lock_guard lock(mMutex);
        return mConnection;
    }

    std::shared_ptr<service_access::Connection> TakeConnection() {
        const std::lock_guard lock(mMutex);
        return std::exchange(mConnection, nullptr);
    }

    void Connect() {
        const std::lock_guard lock(mMutex);
        if (mConnection) {
            return;
        }
        auto connection = std::make_shared<service_access::Connection>(
            service_access::LoadClientConfig(service_access::ResolveClientConfigPath(kConfigPath)));
        connection->AddObserver(service_access::kClampControlService, MakeObserver(mReceiver));
        connection->Start();
        mConnection = std::move(connection);
    }

    void SetReceiver(ClampControlCallbackIf* callback) { mReceiver->store(callback); }

private:
    mutable std::mutex mMutex;
    std::shared_ptr<service_access::Connection> mConnection;
    const std::shared_ptr<Receiver> mReceiver = std::make_shared<Receiver>(nullptr);
};

ClampControlClient::ClampControlClient() : mImpl(std::make_unique<Impl>()) {}

ClampControlClient::~ClampControlClient() {
    ClampControlClient::Stop();
}

void ClampControlClient::Start() {
    try {
        mImpl->Connect();
    } catch (const std::exception& error) {
        service_access::Log().Error(std::string("clamp control is out of reach: ") + error.what());
    }
}

void ClampControlClient::Stop() {
    if (const auto connection = mImpl->TakeConnection()) {
        connection->Stop();
    }
}

void ClampControlClient::AssignCallback(ClampControlCallbackIf* callback) {
    mImpl->SetReceiver(callback);
    if (const auto connection = mImpl->Connection()) {
        connection->WaitForCallback();
    }
}

std::string ClampControlClient::SubscribeClampState() {
    const auto connection = mImpl->Connection();
    return connection ? connection->Subscribe(service_access::kClampControlService,
                                              service_access::kClamp15Element)
                      : std::string();
}

void ClampControlClient::UnsubscribeClampState(const std::string& subscription) {
    if (const auto connection = mImpl->Connection()) {
        connection->Unsubscribe(subscription);
    }
}

}  // namespace clampcontrolclient
