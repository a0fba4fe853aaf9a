#pragma once

#include <map>
#include <memory>
#include <string>

#include "simulation/connector_library.h"
#include "simulation/machine_model.h"

namespace simulation {

/// The tables of the connector machine.
class ConnectorModel : public MachineModel {
public:
    ConnectorModel(Oracle& oracle, ConnectorLibrary& library);

    void Construct() { Built(); }
    bool Start(const std::shared_ptr<MachineModel>& target);
    void Stop();
    void GetUrl();
    bool Connect(const std::string& host, int port, const std::shared_ptr<MachineModel>& exchange);

    /// What the library has called back with.
    void SocketResult(int id, int status, const std::shared_ptr<Wire>& wire);

    int Status() const { return mStatus; }
    bool Activated() const { return mActivated; }

private:
    void Handle(const Event& event) override;
    void HandleAfterEnd() override { Row("connector: after the end"); }
    void HandleStatus(int status);
    void HandleUrl(const Event& event);
    void HandleSocket(const Event& event);
    void Report(int info, int number);

    ConnectorLibrary& mLibrary;
    std::weak_ptr<MachineModel> mTarget;
    bool mStarted{false};
    std::map<int, std::shared_ptr<MachineModel>> mAttempts;
    int mStatus{0};
    int mConnection{0};
    bool mActivated{false};
    bool mQueryPending{false};
    int mNextAttempt{0};
};

}  // namespace simulation
