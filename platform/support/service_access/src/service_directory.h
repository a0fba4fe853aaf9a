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

/// Which services there are at the moment, and who is told about them. Observers are called on the
/// callback thread, in the order of the calls made here. Any thread.
class ServiceDirectory {
public:
    /// `callbacks` must outlive this object.
    explicit ServiceDirectory(CallbackThread& callbacks) : mCallbacks(callbacks) {}

    /// The observer is told at once if the service is there already.
    void AddObserver(const std::string& service, ServiceObserver observer);

    /// When this returns, no observer is called any more, apart from the one from which it is
    /// called.
    void RemoveObservers();

    /// A repeated report is no news. More than 256 services are an error.
    void SetAvailable(const std::string& service, bool available);
    /// The connection that the services were known by is lost.
    void SetNoneAvailable();
    void Subscribed(const std::string& service);
    void ElementChanged(const std::string& service, const std::string& element, bool value);
    /// Logs the error and tells it to all observers.
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
