#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "simulation/connector_model.h"
#include "simulation/exchange_model.h"
#include "simulation/machine_model.h"

namespace simulation {

/// The tables of the client machine.
class ClientModel : public MachineModel {
public:
    ClientModel(Oracle& oracle, testing_support::ScriptedUnit& unit,
                std::shared_ptr<ConnectorModel> connector, bool factoryReset);

    /// The constructor, which throws if the store cannot be opened.
    void Construct(bool storeOpens, bool terminatedMeanwhile);
    /// `StartFsm`, with its result.
    bool Start();

    // What the neighbours call back with.
    void ClampState(bool on);
    void ImmobilizerConnection(bool connected);
    void ImmobilizerVin(const std::string& vin);
    void TlsAlert(const std::string& oid, int code);
    void Termination() { Post(To(nullptr, 13)); }

    /// A termination request is on its way when the adapter goes.
    bool lateTermination{false};
    /// `GetVin` calls that have no answer yet.
    int owesVin{0};
    int Connection() const { return mConnection; }
    bool ClampOn() const { return mClampOn; }
    bool InExchange() const { return mExchange; }

private:
    void Handle(const Event& event) override;
    void HandleAfterEnd() override { Row("any: event after the end"); }
    /// What a state does with an event; false if the event is none of its own.
    bool HandleInState(const std::string& name, const Event& event);
    bool Common(const Event& event);
    void HandleConnector(const Event& event);
    void Stop();
    void ReleaseAdapter();

    bool WaitTrigger(const Event& event);
    bool WaitConnector(const Event& event);
    bool CheckServices(const Event& event);
    bool WaitVin(const Event& event);
    bool Update(const Event& event);
    bool Download(const Event& event);
    bool CheckAndStore(const Event& event);
    bool Retry(const Event& event);

    void StartPass();
    void HandleUrl(const Event& event);
    void QueryVin();
    void HandleVin(const std::string& vin);
    void HandleCheckTime();
    void Judge();
    int ReasonOf(int status);
    void StartUpdate();
    std::string RequestBody() const;
    void TestDownload();
    void StartDownload();
    void HandleAnswer(const Event& event);
    void StartRetry(std::string_view row, const std::string& line);
    void EndUpdate(std::string_view row, std::initializer_list<std::string> lines,
                   bool success = false);
    void EndPass(std::string_view row, std::initializer_list<std::string> lines);
    bool Delete();

    testing_support::ScriptedUnit& mUnit;
    std::shared_ptr<ConnectorModel> mConnector;
    bool mReset;
    int mSession{0};
    int mConnection{0};
    bool mImmobilizer{false};
    bool mAlertHandled{false};
    bool mClampOn{false};
    bool mExchange{false};
    int mReason{5};
    std::string mKoruVin;

    /// What is wiped at the end of a pass.
    struct Pass {
        bool alert{false};
        bool retryOngoing{false};
        int retries{0};
        std::string oid;
        std::string body;
        Destination destination;
    } mPass;
};

}  // namespace simulation
