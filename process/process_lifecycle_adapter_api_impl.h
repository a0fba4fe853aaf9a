#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include <ara/exec/application_client.h>
#include <ara/phm/health_channel.h>
#include <ara/phm/phm_client.h>
#include <ara/phm/supervision_entity.h>
#include <ara/stm/component_client.h>

#include "process/process_lifecycle_adapter_api_if.h"

namespace process_lifecycle_adapter {

/// Talks to execution, health and state management.
class ProcessLifecycleAdapterApiImpl : public ProcessLifecycleAdapterApiIf {
public:
    /// The health configuration of a component is `configDirectory` + its name + "-phm.ini".
    explicit ProcessLifecycleAdapterApiImpl(std::string configDirectory = "/etc/");
    ~ProcessLifecycleAdapterApiImpl() override;

    ProcessLifecycleAdapterApiImpl(const ProcessLifecycleAdapterApiImpl&) = delete;
    ProcessLifecycleAdapterApiImpl& operator=(const ProcessLifecycleAdapterApiImpl&) = delete;

    void Initialize(const std::string& name) override;
    void Initialize(const std::string& name,
                    ProcessLifecycleAdapterStateCallbackIf* callback) override;
    void Start() override;
    unsigned short GetIAmAliveTime() override;
    void IAmAlive() override;
    void Terminating() override;
    void StateChanged(ProcessState state, unsigned int sequence) override;
    void StateChanged(bool changed) override;

    /// A state request of the platform, on a thread of the platform.
    virtual void StateChangeRequested(const ara::stm::ComponentClient& client,
                                      unsigned int sequence, const std::string& state);

private:
    using Settings = std::unordered_map<std::string, std::string>;

    bool ReadConfiguration(const std::string& name);
    static bool ReadNumber(const Settings& settings, const std::string& key,
                           const std::string& name, unsigned short& number);
    void ReleaseComponentClient();

    std::string mConfigDirectory;
    ara::exec::ApplicationClient mApplicationClient;
    std::unique_ptr<ara::phm::SupervisionEntity> mSupervisionEntity;
    std::unique_ptr<ara::phm::Phm_client> mPhmClient;
    std::unique_ptr<ara::phm::HealthChannel> mHealthChannel;
    std::mutex mComponentClientMutex;  ///< a request may be confirmed while the client is made
    std::unique_ptr<ara::stm::ComponentClient> mComponentClient;
    unsigned short mSupervisionCycle = 0;  ///< in steps of 100 ms
    unsigned short mExpectedAliveIndications = 0;
    unsigned short mSupervisionEntityId = 0;
    unsigned short mCheckpointId = 0;
    std::string mInstanceId;
    ProcessLifecycleAdapterStateCallbackIf* mStateCallback = nullptr;
    std::string mComponentName;
    bool mConfigured = false;
};

}  // namespace process_lifecycle_adapter
