#pragma once

#include <string_view>

namespace simulation {

/// The rows of the transition and failure tables that a life can walk: of the client machine, the
/// connector machine and the exchange. Separated by bars.
inline constexpr std::string_view kRows =
    "start: no adapter|start: store cannot be opened|start: session rejected|start: reset|"
    "start: reset fails|start: done|any: unexpected event|any: shutdown|any: termination at the "
    "end|any: event after the end|"
    "wait trigger: clamp on|wait trigger: clamp off|wait trigger: alert|"
    "wait trigger: alert, clamp off|wait trigger: alert, handled|"
    "wait connector: session not started|wait connector: query|wait connector: URL good|"
    "wait connector: URL failed|wait connector: URL empty|wait connector: URL invalid|"
    "wait connector: rejected|check services: connected|check services: not connected|"
    "wait VIN: match|wait VIN: immobilizer empty|wait VIN: KORU empty|wait VIN: mismatch|"
    "wait VIN: time not set|wait VIN: no update|wait VIN: update, keep|wait VIN: update, delete|"
    "wait VIN: unknown status|wait VIN: none stored|wait VIN: reason of the reset|"
    "wait VIN: alert pass|wait VIN: normal retry|wait VIN: alert retry|update: ECU data missing|"
    "update: no CSR|update: no container|update: done|download: connection not usable|"
    "download: exchange running|download: start|download: start refused|download: rejected|"
    "download: certificate|download: unparsable certificate|download: error parsed|"
    "download: error unparsable|download: retry|store: check fails|store: storing fails|"
    "store: done|retry: again|retry: limit|connector: status|connector: status rejected|"
    "connector: status invalid|connector: query|connector: query pending|connector: query refused|"
    "connector: URL|connector: URL failed|connector: URL of another operation|"
    "connector: URL not asked for|connector: activation|connector: connection|"
    "connector: refused by status|connector: refused by activation|connector: socket refused|"
    "connector: socket asked for|connector: socket result|connector: after the end|"
    "exchange: refused|exchange: socket failed|exchange: header not written|exchange: header sent|"
    "exchange: confirmation incomplete|exchange: confirmation refused|"
    "exchange: confirmation without a number|exchange: stream ends before the confirmation|"
    "exchange: body not written|exchange: body sent|exchange: data|exchange: read error|"
    "exchange: certificate|exchange: empty answer|exchange: other answer|exchange: error answer|"
    "exchange: other error|exchange: answer without a number|exchange: timeout|"
    "exchange: after the end|FsmStateWaitTrigger: common|FsmStateWaitZemConnector: common|"
    "FsmStateCheckServices: common|FsmStateWaitVin: common|StartCertificateUpdate: common|"
    "FsmStateDownloadCertificate: common|FsmStateCheckAndStoreTiv: common|"
    "FsmRetryProcedure: common";

}  // namespace simulation
