// The response splitter, fed like the request handler does: with all bytes that have arrived so
// far.

#include <optional>
#include <stdexcept>
#include <string>

#include "backend/http_protocol.h"
#include "fuzz/check.h"

namespace {

using fuzz::Check;
using nuro_common::HttpProtocol;

constexpr const char* kHeaderEnd = "\r\n\r\n";

/// False if the status is no number, which the parser reports by an exception of this type.
bool Parses(HttpProtocol& http, const std::string& data) {
    try {
        http.ParseResponse(data);
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

bool BeginsWithHttp(const std::string& data) {
    return data.rfind("HTTP", 0) == 0;
}

/// The status of a well-formed status line, read digit by digit.
std::optional<int> WellFormedStatus(const std::string& header) {
    const auto blank = header.find(' ');
    if (blank == std::string::npos || header.size() < blank + 4) {
        return std::nullopt;
    }
    int status = 0;
    for (auto i = blank + 1; i < blank + 4; ++i) {
        if (header[i] < '0' || header[i] > '9') {
            return std::nullopt;
        }
        status = status * 10 + (header[i] - '0');
    }
    return status;
}

/// What a parser without a past makes of the bytes.
void CheckWhole(const std::string& data, const HttpProtocol& http, bool parsed) {
    const auto headerEnd = data.find(kHeaderEnd);
    if (headerEnd == std::string::npos) {
        Check(parsed && http.ResponseStatusCode() == HttpProtocol::kStatusIncomplete,
              "without a blank line the response is incomplete");
        Check(http.ResponseHeader().empty() && http.ResponsePayload().empty(),
              "an incomplete response has no parts");
        return;
    }
    Check(http.ResponseHeader() == data.substr(0, headerEnd), "the header ends at the blank line");
    const bool isHttp = headerEnd >= 4 && BeginsWithHttp(data);
    if (!parsed || !isHttp) {
        Check(isHttp != parsed, "only the status of a response can fail to convert");
        Check(http.ResponseStatusCode() == 0, "the status stays as it was");
        Check(http.ResponsePayload().empty(), "a header without a status has no payload");
        return;
    }
    Check(http.ResponseHeader() + kHeaderEnd + http.ResponsePayload() == data, "no byte is lost");
    const int status = http.ResponseStatusCode();
    const bool unknown = status == HttpProtocol::kStatusUnknown;
    Check(unknown || (status >= 100 && status <= 505), "a status is one of the known ones");
    if (const auto written = WellFormedStatus(http.ResponseHeader())) {
        Check(status == *written || unknown, "the status is the one on the status line");
        Check(!unknown || (*written != 100 && *written != 200), "100 and 200 are known");
    }

    HttpProtocol headerOnly;
    headerOnly.SetOption(nuro_common::HttpOption::HeaderOnly);
    headerOnly.ParseResponse(data);
    Check(headerOnly.ResponsePayload().empty(), "the flag suppresses the payload");
    Check(headerOnly.ResponseStatusCode() == status &&
              headerOnly.ResponseHeader() == http.ResponseHeader(),
          "the flag changes nothing but the payload");
}

/// The same bytes in two pieces end as they do in one.
void CheckPieces(const std::string& data, std::size_t cut, const HttpProtocol& whole, bool parsed) {
    HttpProtocol pieces;
    if (!Parses(pieces, data.substr(0, cut))) {
        return;
    }
    const auto firstStatus = pieces.ResponseStatusCode();
    const std::string firstHeader = pieces.ResponseHeader();
    const std::string firstPayload = pieces.ResponsePayload();

    Check(Parses(pieces, data) == parsed, "a past does not make a response fail");
    Check(pieces.ResponsePayload() == whole.ResponsePayload(), "the payload has no past");
    Check(pieces.ResponseHeader() == whole.ResponseHeader(), "the header has no past");
    const bool writesStatus = parsed && (whole.ResponseStatusCode() != 0);
    Check(pieces.ResponseStatusCode() == (writesStatus ? whole.ResponseStatusCode() : firstStatus),
          "the status is new or stays");

    const bool statusIsInHeader = firstHeader.find(' ') != std::string::npos;
    if (firstStatus != HttpProtocol::kStatusIncomplete && statusIsInHeader) {
        Check(parsed && pieces.ResponseStatusCode() == firstStatus &&
                  pieces.ResponseHeader() == firstHeader,
              "what follows a complete header does not change it");
        Check(pieces.ResponsePayload().rfind(firstPayload, 0) == 0, "the payload only grows");
    }
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const std::string response(input);
    HttpProtocol whole;
    const bool parsed = Parses(whole, response);
    CheckWhole(response, whole, parsed);
    for (const auto cut : fuzz::Cuts(input.size())) {
        CheckPieces(response, cut, whole, parsed);
    }
}
