#pragma once

#include <memory>
#include <string>

#include "client/transition_table.h"
#include "lives/link_models.h"
#include "lives/machine_model.h"

namespace lives {

/// The client machine by its transition table: keeps the facts that the table asks for, and tells
/// the oracle its stories.
class ClientModel : public MachineModel {
public:
    ClientModel(Oracle& oracle, testing_support::ScriptedUnit& unit,
                std::shared_ptr<ConnectorModel> connector, bool factoryReset)
        : MachineModel(oracle, "VintrelClientFsm"), mUnit(unit), mConnector(std::move(connector)) {
        mFacts["reset"] = factoryReset ? "asked" : "none";
    }

    /// The constructor, which throws if the store cannot be opened.
    void Construct(bool storeOpens, bool terminatedMeanwhile);
    /// `StartFsm`, with its result.
    bool Start();

    /// A neighbour's thread calls back.
    void CalledBack(const client_table::Trigger& trigger);

    /// A termination request is on its way when the adapter goes.
    bool lateTermination{false};
    /// `GetVin` calls that have no answer yet.
    int owesVin{0};
    bool ConnectionUsable() const { return mFacts.at("connection") == "usable"; }
    bool ClampOn() const { return mFacts.at("Clamp 15") == "on"; }
    bool InExchange() const { return mFacts.at("exchange") == "runs"; }

private:
    void Handle(const Event& event) override;
    /// What can be learnt from an event and from the unit at its time.
    void Look(const Event& event);
    /// The event's name among the triggers of the table.
    std::string NameOf(const Event& event);

    void Tell(const client_table::Words& story);
    void TellRaising(const std::string& trigger);
    /// Passes an item of a story on to the oracle.
    void See(const std::string& item);
    void RaiseItem(const std::string& text);
    void CallNeighbour(const std::string& call);

    std::string RequestBody() const;
    void StartExchange();
    void ReleaseAdapter();

    testing_support::ScriptedUnit& mUnit;
    std::shared_ptr<ConnectorModel> mConnector;
    client_table::Facts mFacts = client_table::FirstFacts();
    std::string mBody;
    Destination mDestination;
};

}  // namespace lives
