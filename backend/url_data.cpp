#include "client/url_data.h"

#include <exception>
#include <limits>

#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;

namespace {

constexpr const char* kSchemeEnd = "://";
constexpr std::size_t kSchemeEndSize = 3;

bool ParsePort(const std::string& text, std::uint16_t& port) {
    int number = 0;
    try {
        number = std::stoi(text);
    } catch (const std::exception& exception) {
        QELLogging::LogError("URL parsing failed! Not able to parse port number: '", text, "'");
        QELLogging::LogError("GetUrlData", ": exception:", exception.what());
        return false;
    } catch (...) {
        QELLogging::LogError("GetUrlData", ": URL parsing failed, unknown exception!");
        return false;
    }
    if (number <= 0 || number > std::numeric_limits<std::uint16_t>::max()) {
        QELLogging::LogError("Invalid port number: '", number, "'");
        return false;
    }
    port = static_cast<std::uint16_t>(number);
    return true;
}

bool DefaultPort(const std::string& scheme, std::uint16_t& port) {
    if (scheme.find("http://") != std::string::npos) {
        QELLogging::LogInfo("Received URL missing port number. Default HTTP port used: 80");
        port = 80;
        return true;
    }
    if (scheme.find("https://") != std::string::npos) {
        QELLogging::LogInfo("Received URL missing port number. Default HTTPS port used: 443");
        port = 443;
        return true;
    }
    QELLogging::LogError("URL parsing failed! Missing port number and invalid protocol!");
    return false;
}

}  // namespace

bool GetUrlData(const std::string& url, UrlData& urlData) {
    const auto schemeEnd = url.find(kSchemeEnd);
    if (schemeEnd == std::string::npos) {
        QELLogging::LogError("URL parsing failed! Protocol not found!");
        return false;
    }
    const std::string rest = url.substr(schemeEnd + kSchemeEndSize);
    const auto colon = rest.find(':');
    if (rest.empty() || colon == 0) {
        QELLogging::LogError("URL parsing failed! Domain not found!");
        return false;
    }
    const auto slash = rest.find('/');
    const bool hasPort = colon != std::string::npos;
    urlData.host = rest.substr(0, hasPort ? colon : slash);
    urlData.path = slash == std::string::npos ? "/" : rest.substr(slash);

    if (!hasPort) {
        return DefaultPort(url.substr(0, schemeEnd + kSchemeEndSize), urlData.port);
    }
    const auto portBegin = colon + 1;
    const bool slashEndsPort = slash != std::string::npos && slash > colon;
    return ParsePort(rest.substr(portBegin, slashEndsPort ? slash - portBegin : std::string::npos),
                     urlData.port);
}

}  // namespace vintrel
