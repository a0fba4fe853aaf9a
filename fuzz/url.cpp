// The parser of the URL that the connector delivers.

#include <string>

#include <ara_log_host/sink.h>

#include "client/url_data.h"
#include "fuzz/check.h"
#include "logging/qel_logging.h"

namespace {

using fuzz::Check;
using vintrel::UrlData;

int errorLines = 0;

/// Lines are built and counted, but not written.
void CountErrorLines() {
    qel_logging::QELLogging::InitLogging("FUZZ");
    ara_log_host::ExchangeSink({[](ara::log::LogLevel level, const std::string& /*text*/) {
                                    errorLines += level == ara::log::LogLevel::kError ? 1 : 0;
                                },
                                ara::log::LogLevel::kVerbose});
}

bool operator==(const UrlData& left, const UrlData& right) {
    return left.host == right.host && left.port == right.port && left.path == right.path;
}

void CheckParts(const std::string& url, const UrlData& data) {
    const auto schemeEnd = url.find("://");
    Check(schemeEnd != std::string::npos, "a URL has a scheme");
    const std::string rest = url.substr(schemeEnd + 3);
    Check(data.port != 0, "a port is never 0");
    Check(rest.rfind(data.host, 0) == 0, "the host stands behind the scheme");
    Check(data.host.find(':') == std::string::npos, "a colon ends the host");
    Check(!data.host.empty() || rest[0] == '/', "only a slash stands for an empty host");
    const auto slash = rest.find('/');
    Check(data.path == (slash == std::string::npos ? "/" : rest.substr(slash)),
          "the path begins at the first slash and loses nothing");
}

/// The parts that were found, written as a URL again, are found again.
void CheckRoundTrip(const UrlData& data) {
    if (data.host.empty() || data.host.find('/') != std::string::npos) {
        return;
    }
    UrlData again;
    Check(vintrel::GetUrlData("any://" + data.host + ":" + std::to_string(data.port) + data.path,
                              again),
          "a URL made of good parts is good");
    Check(again == data, "the parts survive being written as a URL");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    CountErrorLines();
    return 0;
}

void fuzz::TryInput(std::string_view input) {
    const std::string url(input);
    UrlData fresh;
    errorLines = 0;
    const bool good = vintrel::GetUrlData(url, fresh);
    Check(good == (errorLines == 0), "a failure has a line in the log, a success has none");

    UrlData used{"host of before", 1, "/path/of/before"};
    Check(vintrel::GetUrlData(url, used) == good, "what the record held does not matter");
    if (good) {
        Check(used == fresh, "a success sets all three parts");
        CheckParts(url, fresh);
        CheckRoundTrip(fresh);
    }
}
