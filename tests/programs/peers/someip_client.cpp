// Follows the diagnostic information until its standard input ends, and writes down what it sees,
// one line each: "up", "down", and "value" with the field's software version and the size of its
// part number.

#include <iostream>
#include <memory>
#include <mutex>
#include <string>

#include <ac/com/runtime/component_singleton.h>
#include <eb/com/runtime/instance_id.h>
#include <orv/services/diagnosticinfo/proxy/diagnostic_info_proxy.h>

namespace {

using ara::com::ServiceHandle;
using orv::services::diagnosticinfo::proxy::DiagnosticInfoProxy;

class Follower {
public:
    void Found(const std::vector<ServiceHandle>& handles) {
        if (handles.empty()) {
            mProxy.reset();
            Say("down");
            return;
        }
        Say("up");
        mProxy = std::make_unique<DiagnosticInfoProxy>(handles.front());
        mProxy->identificationData.SetReceiveHandler(
            [this, &field = mProxy->identificationData] { Received(field); });
        mProxy->identificationData.Subscribe(
            ac::com::cpp_binding::Event_cache_update_policy::kNewestN, 20);
    }

private:
    template <typename Field>
    void Received(Field& field) {
        field.Update();
        for (const auto& sample : field.GetCachedSamples()) {
            for (const auto& record : *sample) {
                const auto sw = record.swVersion.value_or(std::vector<std::uint8_t>());
                const auto part = record.partNumber.value_or(std::vector<std::uint8_t>());
                Say("value " + std::string(sw.begin(), sw.end()) + " " +
                    std::to_string(part.size()));
            }
        }
        field.Cleanup();
    }

    void Say(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mMutex);
        std::cout << line << std::endl;
    }

    std::mutex mMutex;
    std::unique_ptr<DiagnosticInfoProxy> mProxy;
};

}  // namespace

int main() {
    const ac::com::runtime::Component_singleton runtime(false, "");
    Follower follower;
    const auto search = DiagnosticInfoProxy::StartFindService(
        [&follower](const auto& handles) { follower.Found(handles); },
        eb::com::runtime::Instance_id::Any);
    while (std::cin.get() != std::istream::traits_type::eof()) {
    }
    return 0;
}
