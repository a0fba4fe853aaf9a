#pragma once

#include <initializer_list>
#include <memory>
#include <string>

#include "lives/link_models.h"
#include "lives/machine_model.h"

namespace lives {

/// The tables of the client machine.
class ClientModel : public MachineModel {
public:
    ClientModel(Oracle& oracle, testing_support::ScriptedUnit& unit,
                std::shared_ptr<ConnectorModel> connector, bool factoryReset)
        : MachineModel(oracle, "VintrelClientFsm"),
          mUnit(unit),
          mConnector(std::move(connector)),
          mReset(factoryReset) {}

    /// The constructor, which throws if the store cannot be opened.
    void Construct(bool storeOpens, bool terminatedMeanwhile);
    /// `StartFsm`, with its result.
    bool Start();

    // What the neighbours call back with.
    void ClampState(bool on);
    void ImmobilizerConnection(bool connected);
    void ImmobilizerVin(const std::string& vin);
    void TlsAlert(const std::string& oid, int code);
    void Termination();

    /// A termination request is on its way when the adapter goes.
    bool lateTermination{false};
    /// `GetVin` calls that have no answer yet.
    int owesVin{0};
    int Connection() const { return mConnection; }
    bool ClampOn() const { return mClampOn; }
    bool InExchange() const { return mExchange; }

private:
    struct Row {
        int event;
        const char* state;
        void (ClientModel::*method)(const Event&);
    };
    static const Row kRows[];

    void Handle(const Event& event) override;
    bool Common(const Event& event);
    void HandleConnector(const Event& event);
    void Stop();
    void ReleaseAdapter();

    void TriggerByClamp(const Event& event);
    void TriggerByAlert(const Event& event);
    void WaitConnector(const Event& event);
    void CheckServices(const Event& event);
    void HandleVin(const Event& event);
    void HandleCheckTime(const Event& event);
    void Update(const Event& event);
    void TestDownload(const Event& event);
    void HandleAnswer(const Event& event);
    void CheckAndStore(const Event& event);
    void Retry(const Event& event);

    void StartPass();
    void HandleUrl(const Event& event);
    void QueryVin();
    void Judge();
    int ReasonOf(int status);
    std::string RequestBody() const;
    void StartDownload();
    void StartRetry(const std::string& line);
    void EndPass(std::initializer_list<std::string> lines = {});
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

}  // namespace lives
