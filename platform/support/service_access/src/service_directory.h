#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <service_access/callback_thread.h>
#include <service_access/connection.h>

namespace service_access {

/// The services that are available at the moment, and the observers of changes. Observers are
/// called on the callback thread, in the order of the calls made here. Any thread.
class ServiceDirectory {
public:
    /// `callbacks` must outlive this object.
    explicit ServiceDirectory(CallbackThread& callbacks) : mCallbacks(callbacks) {}

    /// The observer is notified at once if the service is available already.
    void AddObserver(const std::string& service, ServiceObserver observer);

    /// When this returns, no observer is called any more, apart from the one from which it is
    /// called.
    void RemoveObservers();

    /// A repeated report notifies nobody. The 257th service is reported as an error.
    void SetAvailable(const std::string& service, bool available);
    /// The connection is lost, and all services with it.
    void SetNoneAvailable();
    void Subscribed(const std::string& service);
    void ElementChanged(const std::string& service, const std::string& element, bool value);
    /// Logs the error and reports it to all observers.
    void Error(const std::string& text);

private:
    struct Entry {
        ServiceObserver observer;
        /// Written under the mutex, read on the callback thread.
        std::atomic<bool> active{true};
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;
    using Notification = std::function<void(const ServiceObserver&)>;

    // Under mMutex.
    void Notify(const std::string& service, const Notification& notification);
    void NotifyError(const std::string& text);
    void Post(const std::shared_ptr<Entry>& entry, const Notification& notification);

    CallbackThread& mCallbacks;
    std::mutex mMutex;
    std::map<std::string, Entries> mObservers;
    std::set<std::string> mAvailable;
};

}  // namespace service_access
