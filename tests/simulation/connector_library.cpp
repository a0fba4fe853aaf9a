#include "simulation/connector_library.h"

#include <string>
#include <utility>

namespace simulation {

namespace {

ConnectorLibrary* gCurrent = nullptr;

}  // namespace

ConnectorLibrary::ConnectorLibrary(testing_support::ScriptedUnit& scriptedUnit)
    : unit(scriptedUnit) {
    gCurrent = this;
}

ConnectorLibrary::~ConnectorLibrary() {
    gCurrent = nullptr;
}

ConnectorLibrary& ConnectorLibrary::Current() {
    return *gCurrent;
}

}  // namespace simulation

namespace zem_connector {

using simulation::ConnectorLibrary;

class ZemConnector::Impl {};

ZemConnector::ZemConnector(ZemSessionCallbackIf* sessionCallback, ZemPubSubCallbackIf*) {
    ConnectorLibrary::Current().session = sessionCallback;
}

ZemConnector::~ZemConnector() {
    ConnectorLibrary::Current().unit.Note("Library destroyed");
}

SessionStatus ZemConnector::Start() {
    ConnectorLibrary::Current().unit.Note("Library.Start");
    return ConnectorLibrary::Current().startStatus;
}

void ZemConnector::Stop() {
    ConnectorLibrary& library = ConnectorLibrary::Current();
    library.unit.Note("Library.Stop");
    library.session = nullptr;
    library.controller = nullptr;
    library.owesUrl = false;
    library.owesSockets.clear();
}

bool ZemConnector::SubscribeTransactionTypeState(std::string transactionType,
                                                 ZemServiceControllerCallbackIf* callback,
                                                 unsigned int options) {
    ConnectorLibrary::Current().unit.Note("Library.Subscribe " + std::move(transactionType) + " " +
                                          std::to_string(options));
    ConnectorLibrary::Current().controller = callback;
    return true;
}

bool ZemConnector::GetInvocationUrl(std::string operationId,
                                    ZemServiceControllerCallbackIf* callback) {
    ConnectorLibrary& library = ConnectorLibrary::Current();
    library.unit.Note("Library.GetInvocationUrl " + std::move(operationId));
    library.controller = callback;
    library.owesUrl = library.acceptsUrlQuery;
    return library.acceptsUrlQuery;
}

bool ZemConnector::SocketConnect(std::string operationId, std::string host, unsigned short port,
                                 ZemSocketCallbackIf* callback) {
    ConnectorLibrary& library = ConnectorLibrary::Current();
    library.unit.Note("Library.SocketConnect " + std::move(operationId) + " " + std::move(host) +
                      " " + std::to_string(port));
    if (library.acceptsSocket) {
        library.owesSockets.push_back({callback, library.acceptedSockets++});
    }
    return library.acceptsSocket;
}

}  // namespace zem_connector
