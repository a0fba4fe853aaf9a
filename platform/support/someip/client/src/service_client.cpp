#include <atomic>
#include <exception>
#include <utility>

#include <someip/client/service_client.h>

#include "client_node.h"
#include "client_service.h"
#include "registered_handler.h"

namespace someip {

ClientNode::ClientNode(std::shared_ptr<WorkerPool> pool, std::string deploymentPath)
    : mPool(std::move(pool)),
      mImpl(std::make_shared<Impl>(mPool->Context(), std::move(deploymentPath))) {
    Impl::Post(mImpl, [](Impl& node) { node.Start(); });
}

ClientNode::~ClientNode() {
    try {
        Impl::Post(mImpl, [](Impl& node) { node.Close(); });
    } catch (const std::exception&) {
        // Out of memory. A node that stays open would outlive its pool.
        std::terminate();
    }
}

/// Owns what a posted call needs, so that a call may run after its ServiceClient's end.
class ServiceClient::Service {
public:
    Service(std::shared_ptr<WorkerPool> pool, std::shared_ptr<ClientNode::Impl> node,
            const std::string& name, const std::string& instance)
        : mPool(std::move(pool)),
          mNode(std::move(node)),
          mService(std::make_shared<ClientService>(*mNode, name, instance)) {}

    template <typename Work>
    void Post(Work work) const {
        ClientNode::Impl::Post(mNode, [service = mService, work = std::move(work)](
                                          ClientNode::Impl& node) { work(node, service); });
    }

    boost::asio::io_context& Context() const { return mPool->Context(); }
    std::uint64_t DroppedMessages() const { return mService->DroppedMessages(); }

private:
    /// Outlives the strands of the others.
    std::shared_ptr<WorkerPool> mPool;
    std::shared_ptr<ClientNode::Impl> mNode;
    std::shared_ptr<ClientService> mService;
};

class ServiceClient::RegistrationImpl : public Registration {
public:
    RegistrationImpl(std::shared_ptr<Service> service,
                     std::shared_ptr<RegisteredHandler> registered)
        : mService(std::move(service)), mRegistered(std::move(registered)) {}

    ~RegistrationImpl() override { End(); }
    RegistrationImpl(const RegistrationImpl&) = delete;
    RegistrationImpl& operator=(const RegistrationImpl&) = delete;

    void Close() override { End(); }

private:
    void End() {
        mRegistered->gate.Close();
        if (!mDropped.exchange(true)) {
            mService->Post([registered = mRegistered](auto&, const auto& service) {
                service->Drop(registered);
            });
        }
    }

    std::shared_ptr<Service> mService;
    std::shared_ptr<RegisteredHandler> mRegistered;
    std::atomic<bool> mDropped{false};
};

ServiceClient::ServiceClient(std::shared_ptr<ClientNode> node, std::string name,
                             const std::string& instance)
    : mName(std::move(name)),
      mNode(std::move(node)),
      mService(std::make_shared<Service>(mNode->mPool, mNode->mImpl, mName, instance)) {
    mService->Post([](auto& implementation, const auto& service) { implementation.Add(service); });
}

ServiceClient::~ServiceClient() {
    try {
        mService->Post(
            [](auto& implementation, const auto& service) { implementation.Remove(service); });
    } catch (const std::exception&) {
        // Out of memory. A service that stays registered would be served until the process ends.
        std::terminate();
    }
}

std::shared_ptr<ServiceClient::Registration> ServiceClient::WatchAvailability(
    AvailabilityHandler handler) {
    auto watcher = std::make_shared<AvailabilityWatcher>(mService->Context());
    watcher->handler = std::move(handler);
    mService->Post([watcher](auto&, const auto& service) { service->Add(watcher); });
    return std::make_shared<RegistrationImpl>(mService, watcher);
}

std::shared_ptr<ServiceClient::Registration> ServiceClient::SubscribeEvent(const std::string& event,
                                                                           PayloadHandler handler) {
    auto subscriber = std::make_shared<EventSubscriber>(mService->Context());
    subscriber->event = event;
    subscriber->handler = std::move(handler);
    mService->Post(
        [subscriber](auto&, const auto& service) { service->Add(subscriber, Clock::now()); });
    return std::make_shared<RegistrationImpl>(mService, subscriber);
}

std::uint64_t ServiceClient::DroppedMessages() const {
    return mService->DroppedMessages();
}

}  // namespace someip
