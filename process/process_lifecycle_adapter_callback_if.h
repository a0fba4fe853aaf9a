#pragma once

namespace process_lifecycle_adapter {

/// What the lifecycle adapter requires of its application.
///
/// Neither operation is called on the thread that initialised the adapter: an implementation may
/// only post to its own thread or read what is safe to read from any thread.
class ProcessLifecycleAdapterCallbackIf {
public:
    virtual ~ProcessLifecycleAdapterCallbackIf() = default;

    /// The process is to end. Called once, on the signal thread.
    virtual void ProcessLifecycleAdapterTerminate() = 0;

    /// Health of the application; 0 means healthy. Called on the keep-alive thread once per alive
    /// time. Any other value ends the keep-alive indications for good.
    virtual int ProcessLifecycleAdapterGetHealthStatus() = 0;
};

}  // namespace process_lifecycle_adapter
