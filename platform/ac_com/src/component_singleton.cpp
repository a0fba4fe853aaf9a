#include <ac/com/runtime/component_singleton.h>
#include <someip/client/runtime.h>

namespace ac::com::runtime {

Component_singleton::Component_singleton(bool /*flag*/, const std::string& /*name*/)
    : mRuntime(someip::Runtime::Instance()) {}

Component_singleton::~Component_singleton() = default;

}  // namespace ac::com::runtime
