#include "process/process_lifecycle_adapter_api_impl.h"

#include <exception>
#include <limits>
#include <stdexcept>
#include <utility>

#include "logging/qel_logging.h"
#include "process/ini_file_reader.h"

namespace process_lifecycle_adapter {

using qel_logging::QELLogging;

namespace {

constexpr const char* kInstanceId = "instance-id";
constexpr const char* kSupervisionEntityId = "supervision-entity-id";
constexpr const char* kCheckpointId = "checkpoint-id";
constexpr const char* kSupervisionCycle = "supervision-cycle";
constexpr const char* kExpectedAliveIndications = "expected-alive-indications";

constexpr const char* kStateOn = "kOn";
constexpr const char* kStatePrepSD = "kPrepSD";

void WarnOfParameter(const std::string& key, const char* fault, const std::string& name) {
    QELLogging::LogWarning("Configuration parameter \"", key, "\" ", fault, " for component ",
                           name);
}

/// The setting of the key, with a warning if there is none.
std::string FindSetting(const std::unordered_map<std::string, std::string>& settings,
                        const std::string& key, const std::string& name) {
    std::string value = settings.at(key);
    if (value.empty()) {
        WarnOfParameter(key, "not found from INI file", name);
    }
    return value;
}

}  // namespace

ProcessLifecycleAdapterApiImpl::ProcessLifecycleAdapterApiImpl(std::string configDirectory)
    : mConfigDirectory(std::move(configDirectory)) {}

ProcessLifecycleAdapterApiImpl::~ProcessLifecycleAdapterApiImpl() {
    ReleaseComponentClient();
}

void ProcessLifecycleAdapterApiImpl::Initialize(const std::string& name) {
    QELLogging::LogInfo(
        "ProcessLifecycleAdapterApiImpl::Initialize, ReportApplicationState kRunning");
    if (mApplicationClient.ReportApplicationState(ara::exec::ApplicationState::kRunning)) {
        QELLogging::LogError("ReportApplicationState to kRunning failed.");
    }
    mComponentName = name;
    mConfigured = ReadConfiguration(mComponentName);
}

void ProcessLifecycleAdapterApiImpl::Initialize(const std::string& name,
                                                ProcessLifecycleAdapterStateCallbackIf* callback) {
    // A client of an earlier call has a thread that may just be using what changes below.
    ReleaseComponentClient();
    Initialize(name);
    mStateCallback = callback;
    try {
        const std::lock_guard<std::mutex> lock(mComponentClientMutex);
        mComponentClient = ara::stm::createComponentClient(
            mComponentName,
            [this](const ara::stm::ComponentClient& client, unsigned int sequence,
                   const std::string& state) { StateChangeRequested(client, sequence, state); });
    } catch (const std::runtime_error& error) {
        QELLogging::LogError(
            "ProcessLifecycleAdapterApiImpl::Initialize could "
            "not create ComponentClient: ",
            error.what());
    }
}

void ProcessLifecycleAdapterApiImpl::Start() {
    QELLogging::LogDebug("ProcessLifecycleAdapterApiImpl::Start");
    if (!mConfigured) {
        QELLogging::LogError(
            "ProcessLifecycleAdapter::Reading application configuration failed for ",
            mComponentName);
        mSupervisionCycle = 0;
        return;
    }
    QELLogging::LogDebug("Create Phm_client ", mInstanceId);
    mPhmClient = std::make_unique<ara::phm::Phm_client>(mInstanceId);
    mSupervisionEntity = std::make_unique<ara::phm::SupervisionEntity>(*mPhmClient);
    mHealthChannel = std::make_unique<ara::phm::HealthChannel>(*mPhmClient);
}

unsigned short ProcessLifecycleAdapterApiImpl::GetIAmAliveTime() {
    if (mSupervisionCycle == 0 || mExpectedAliveIndications == 0) {
        return 0;
    }
    return static_cast<unsigned short>(mSupervisionCycle / mExpectedAliveIndications);
}

void ProcessLifecycleAdapterApiImpl::IAmAlive() {
    if (!mSupervisionEntity) {
        QELLogging::LogError("IAmAlive called, the mSupervisionEntity has not been created");
        return;
    }
    QELLogging::LogVerbose(
        "ProcessLifecycleAdapterApiImpl::IAmAlive, call CheckpointReached, "
        "supervision id=",
        mSupervisionEntityId, ", checkpoint id=", mCheckpointId);
    try {
        mSupervisionEntity->CheckpointReached(mSupervisionEntityId, mCheckpointId);
    } catch (const std::runtime_error& error) {
        QELLogging::LogDebug(
            "ProcessLifecycleAdapterApiImpl::IAmAlive, "
            "CheckpointReached exception: ",
            error.what());
    }
}

void ProcessLifecycleAdapterApiImpl::Terminating() {
    QELLogging::LogDebug(
        "ProcessLifecycleAdapterApiImpl::Terminating, ReportApplicationState kTerminating");
    static_cast<void>(
        mApplicationClient.ReportApplicationState(ara::exec::ApplicationState::kTerminating));
}

void ProcessLifecycleAdapterApiImpl::StateChanged(ProcessState state, unsigned int sequence) {
    const int number = state;
    QELLogging::LogInfo("ProcessLifecycleAdapterApiImpl::StateChanged: ", number,
                        " seq: ", sequence);
    if (state != kOn && state != kPrepSD) {
        QELLogging::LogError("ProcessLifecycleAdapterApiImpl::StateChanged: Invalid state: ",
                             number);
        return;
    }
    const std::lock_guard<std::mutex> lock(mComponentClientMutex);
    if (!mComponentClient) {
        QELLogging::LogError(
            "ProcessLifecycleAdapterApiImpl::StateChanged: Component Client uninitialized, cannot "
            "notify new state");
        return;
    }
    mComponentClient->confirmStateChange(sequence, state == kOn ? kStateOn : kStatePrepSD, 0);
}

void ProcessLifecycleAdapterApiImpl::StateChanged(bool /*changed*/) {}

void ProcessLifecycleAdapterApiImpl::StateChangeRequested(
    const ara::stm::ComponentClient& /*client*/, unsigned int sequence, const std::string& state) {
    if (state != kStateOn && state != kStatePrepSD) {
        QELLogging::LogError(
            "ProcessLifecycleAdapterApiImpl::StateChangeRequested, Invalid state "
            "requested: ",
            state);
        return;
    }
    QELLogging::LogInfo("ProcessLifecycleAdapterApiImpl::StateChangeRequested new state: ", state);
    if (mStateCallback != nullptr) {
        mStateCallback->ProcessLifecycleAdapterStateRequested(state == kStateOn ? kOn : kPrepSD,
                                                              sequence);
    }
}

bool ProcessLifecycleAdapterApiImpl::ReadConfiguration(const std::string& name) {
    // The keys make the reader look for nothing else.
    const auto settings = std::make_shared<Settings>(Settings{{kInstanceId, ""},
                                                              {kSupervisionEntityId, ""},
                                                              {kCheckpointId, ""},
                                                              {kSupervisionCycle, ""},
                                                              {kExpectedAliveIndications, ""}});
    const std::string path = mConfigDirectory + name + "-phm.ini";
    QELLogging::LogWarning("Config path ", path);
    ini_file_reader::IniFileReader().ReadIniFile(path, settings);
    try {
        const std::string instanceId = FindSetting(*settings, kInstanceId, name);
        if (instanceId.empty()) {
            return false;
        }
        mInstanceId = instanceId;
        return ReadNumber(*settings, kSupervisionEntityId, name, mSupervisionEntityId) &&
               ReadNumber(*settings, kCheckpointId, name, mCheckpointId) &&
               ReadNumber(*settings, kSupervisionCycle, name, mSupervisionCycle) &&
               ReadNumber(*settings, kExpectedAliveIndications, name, mExpectedAliveIndications);
    } catch (const std::exception&) {
        return false;
    }
}

bool ProcessLifecycleAdapterApiImpl::ReadNumber(const Settings& settings, const std::string& key,
                                                const std::string& name, unsigned short& number) {
    const std::string text = FindSetting(settings, key, name);
    if (text.empty()) {
        return false;
    }
    const int value = std::stoi(text);
    if (value < 0 || value > std::numeric_limits<unsigned short>::max()) {
        WarnOfParameter(key, "was invalid", name);
        return false;
    }
    number = static_cast<unsigned short>(value);
    return true;
}

void ProcessLifecycleAdapterApiImpl::ReleaseComponentClient() {
    std::unique_ptr<ara::stm::ComponentClient> client;
    {
        const std::lock_guard<std::mutex> lock(mComponentClientMutex);
        client = std::move(mComponentClient);
    }
    // Waits, without the lock, for a request that is being handled and may want to confirm.
    client.reset();
}

}  // namespace process_lifecycle_adapter
