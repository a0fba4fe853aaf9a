#include "service_directory.h"

#include <stdexcept>
#include <utility>

#include <service_access/log.h>

namespace service_access {

namespace {

constexpr std::size_t kMaxServices = 256;

void CallAvailable(const ServiceObserver& observer) {
    if (observer.available) {
        observer.available();
    }
}

void CallUnavailable(const ServiceObserver& observer) {
    if (observer.unavailable) {
        observer.unavailable();
    }
}

void CallSubscribed(const ServiceObserver& observer) {
    if (observer.subscribed) {
        observer.subscribed();
    }
}

}  // namespace

void ServiceDirectory::AddObserver(const std::string& service, ServiceObserver observer) {
    const auto entry = std::make_shared<Entry>();
    entry->observer = std::move(observer);
    const std::lock_guard lock(mMutex);
    mObservers[service].push_back(entry);
    if (mAvailable.count(service) != 0) {
        Post(entry, CallAvailable);
    }
}

void ServiceDirectory::RemoveObservers() {
    std::map<std::string, Entries> removed;
    {
        const std::lock_guard lock(mMutex);
        removed.swap(mObservers);
        for (const auto& [service, entries] : removed) {
            for (const auto& entry : entries) {
                entry->active = false;
            }
        }
    }
    mCallbacks.WaitForRunningTask();
}

void ServiceDirectory::SetAvailable(const std::string& service, bool available) {
    const std::lock_guard lock(mMutex);
    if (!available) {
        if (mAvailable.erase(service) != 0) {
            Notify(service, CallUnavailable);
        }
        return;
    }
    if (mAvailable.size() >= kMaxServices) {
        NotifyError("the server reports too many services");
        return;
    }
    if (mAvailable.insert(service).second) {
        Notify(service, CallAvailable);
    }
}

void ServiceDirectory::SetNoneAvailable() {
    const std::lock_guard lock(mMutex);
    for (const auto& service : std::exchange(mAvailable, {})) {
        Notify(service, CallUnavailable);
    }
}

void ServiceDirectory::Subscribed(const std::string& service) {
    const std::lock_guard lock(mMutex);
    Notify(service, CallSubscribed);
}

void ServiceDirectory::ElementChanged(const std::string& service, const std::string& element,
                                      bool value) {
    const std::lock_guard lock(mMutex);
    Notify(service, [element, value](const ServiceObserver& observer) {
        if (observer.elementChanged) {
            observer.elementChanged(element, value);
        }
    });
}

void ServiceDirectory::Error(const std::string& text) {
    const std::lock_guard lock(mMutex);
    NotifyError(text);
}

void ServiceDirectory::Notify(const std::string& service, const Notification& notification) {
    const auto found = mObservers.find(service);
    if (found == mObservers.end()) {
        return;
    }
    for (const auto& entry : found->second) {
        Post(entry, notification);
    }
}

void ServiceDirectory::NotifyError(const std::string& text) {
    Log().Warn(text);
    for (const auto& [service, entries] : mObservers) {
        Notify(service, [text](const ServiceObserver& observer) {
            if (observer.error) {
                observer.error(std::runtime_error(text));
            }
        });
    }
}

void ServiceDirectory::Post(const std::shared_ptr<Entry>& entry, const Notification& notification) {
    mCallbacks.Post([entry, notification] {
        if (entry->active) {
            notification(entry->observer);
        }
    });
}

}  // namespace service_access
