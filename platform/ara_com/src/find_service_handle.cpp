#include <utility>
#include <vector>

#include <ara/com/find_service_handle.h>
#include <someip/client/runtime.h>

namespace ara::com {

ServiceHandle::ServiceHandle(std::shared_ptr<someip::ServiceClient> client)
    : mClient(std::move(client)) {}

class FindServiceHandle::Impl {
public:
    Impl(const std::string& serviceName, const std::string& instance, FindServiceHandler handler)
        : mRuntime(someip::Runtime::Instance()), mClient(mRuntime->Client(serviceName, instance)) {
        // The client keeps the function, so the function must not keep the client.
        const std::weak_ptr<someip::ServiceClient> weakClient = mClient;
        mRegistration =
            mClient->WatchAvailability([weakClient, handler = std::move(handler)](bool available) {
                const auto client = weakClient.lock();
                if (!client) {
                    return;
                }
                std::vector<ServiceHandle> handles;
                if (available) {
                    handles.emplace_back(client);
                }
                handler(handles);
            });
    }

    ~Impl() { mRegistration->Close(); }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

private:
    std::shared_ptr<someip::Runtime> mRuntime;
    std::shared_ptr<someip::ServiceClient> mClient;
    std::shared_ptr<someip::ServiceClient::Registration> mRegistration;
};

FindServiceHandle::FindServiceHandle(const std::string& serviceName, const std::string& instance,
                                     FindServiceHandler handler)
    : mImpl(std::make_unique<Impl>(serviceName, instance, std::move(handler))) {}

FindServiceHandle::~FindServiceHandle() = default;

}  // namespace ara::com
