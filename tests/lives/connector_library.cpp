#include "lives/connector_library.h"

#include <string>
#include <utility>

#include "client/scripted_unit.h"

namespace zem_connector {

using lives::ConnectorLibrary;
using testing_support::Noted;

class ZemConnector::Impl {};

ZemConnector::ZemConnector(ZemSessionCallbackIf* sessionCallback, ZemPubSubCallbackIf*) {
    ConnectorLibrary::current->session = sessionCallback;
}

ZemConnector::~ZemConnector() {
    Noted("Library destroyed");
}

SessionStatus ZemConnector::Start() {
    return Noted("Library.Start", ConnectorLibrary::current->startStatus);
}

void ZemConnector::Stop() {
    Noted("Library.Stop");
    ConnectorLibrary::current->session = nullptr;
    ConnectorLibrary::current->controller = nullptr;
    ConnectorLibrary::current->owesUrl = false;
    ConnectorLibrary::current->owesSockets.clear();
}

bool ZemConnector::SubscribeTransactionTypeState(std::string transactionType,
                                                 ZemServiceControllerCallbackIf* callback,
                                                 unsigned int options) {
    ConnectorLibrary::current->controller = callback;
    return Noted("Library.Subscribe " + std::move(transactionType) + " " + std::to_string(options),
                 true);
}

bool ZemConnector::GetInvocationUrl(std::string operationId,
                                    ZemServiceControllerCallbackIf* callback) {
    ConnectorLibrary& library = *ConnectorLibrary::current;
    library.controller = callback;
    library.owesUrl = library.acceptsUrlQuery;
    return Noted("Library.GetInvocationUrl " + std::move(operationId), library.acceptsUrlQuery);
}

bool ZemConnector::SocketConnect(std::string operationId, std::string host, unsigned short port,
                                 ZemSocketCallbackIf* callback) {
    ConnectorLibrary& library = *ConnectorLibrary::current;
    if (library.acceptsSocket) {
        library.owesSockets.push_back({callback, library.acceptedSockets++});
    }
    return Noted("Library.SocketConnect " + std::move(operationId) + " " + std::move(host) + " " +
                     std::to_string(port),
                 library.acceptsSocket);
}

}  // namespace zem_connector
