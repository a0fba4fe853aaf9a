#pragma once

#include <memory>
#include <string>

namespace ac::com::runtime {

/// Keeps the middleware's runtime (its threads and connections) up while the object lives. All
/// objects of a process share one runtime. Any thread.
class Component_singleton {
public:
    /// The host platform has one kind of runtime, so it takes both arguments without effect.
    Component_singleton(bool flag, const std::string& name);
    ~Component_singleton();

    Component_singleton(const Component_singleton&) = delete;
    Component_singleton& operator=(const Component_singleton&) = delete;

private:
    std::shared_ptr<void> mRuntime;
};

}  // namespace ac::com::runtime
