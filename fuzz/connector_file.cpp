// The file that tells the connector library how the vehicle's data link stands.

#include <stdexcept>
#include <string>
#include <vector>

#include <zem_connector_host/connector_file.h>

#include "fuzz/check.h"
#include "host_name.h"

namespace {

using fuzz::Check;
using std::chrono::milliseconds;
using zem_connector::IsHostName;
using zem_connector::host::ConnectorFile;
using Warnings = std::vector<std::string>;

constexpr milliseconds kTenMinutes{10 * 60 * 1000};

ConnectorFile FileOfBefore() {
    ConnectorFile file;
    file.sessionStatus = zem_connector::SessionStatus::kRejected;
    file.connectTimeout = milliseconds(1);
    file.transactionTypes["type of before"].activated = false;
    file.invocationUrls["operation of before"] = "http://before";
    file.operations["operation of before"] = {};
    return file;
}

bool HasControlCharacter(const std::string& text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') {
            return true;
        }
    }
    return false;
}

void CheckProxy(const zem_connector::host::ProxySettings& proxy) {
    Check(IsHostName(proxy.host) && proxy.port != 0, "a proxy has a host and a port");
    Check(proxy.user.empty() == proxy.password.empty(), "a user has a password");
    Check(proxy.user.size() <= 255 && proxy.password.size() <= 255,
          "credentials fit their protocols");
    Check(!HasControlCharacter(proxy.user + proxy.password), "credentials are one line");
}

void CheckOperation(const zem_connector::host::OperationSettings& operation) {
    if (operation.tls) {
        Check(operation.tls->trustAnchors.rfind('/', 0) == 0,
              "trust anchors have an absolute path");
        Check(operation.tls->serverName.empty() || IsHostName(operation.tls->serverName),
              "a server name is one");
    }
    if (operation.proxy) {
        CheckProxy(*operation.proxy);
    }
}

void CheckLimits(const ConnectorFile& file) {
    Check(file.connectTimeout >= milliseconds(1) && file.connectTimeout <= kTenMinutes,
          "the limit of a connection is in its range");
    Check(file.urlTimeout >= milliseconds(0) && file.urlTimeout <= kTenMinutes,
          "the limit of a URL query is in its range");
    for (const auto& entry : file.operations) {
        CheckOperation(entry.second);
    }
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const std::string text(input);
    static const ConnectorFile fileOfBefore = FileOfBefore();
    static const std::string before = fileOfBefore.ToJson();
    ConnectorFile file = fileOfBefore;
    Warnings warnings;
    try {
        ParseConnectorFile(text, file, warnings);
    } catch (const std::runtime_error& error) {
        Check(*error.what() != '\0', "a refusal has a reason");
        Check(file.ToJson() == before, "a refused file changes nothing");
        return;
    }
    CheckLimits(file);

    const std::string written = file.ToJson();
    ConnectorFile again;
    Warnings warningsAgain;
    ParseConnectorFile(written, again, warningsAgain);
    Check(again.ToJson() == written, "a file survives being written and read");
    Check(warningsAgain.size() <= warnings.size(), "a file that was written has no unknown keys");
    for (const std::string& warning : warningsAgain) {
        Check(warning.rfind("unknown key", 0) != 0, "a file that was written has no unknown keys");
    }
}
