#pragma once

#include <cstdint>
#include <string>

#include "backend/http_option.h"

namespace nuro_common {

/// Builds HTTP/1.1 requests (RFC 9112) by concatenation and splits responses at the blank line.
///
/// A plain value: no socket, no timer, no thread. Strings hold bytes. Nothing is escaped on the
/// way out; on the way in neither the header fields nor a transfer coding are looked at, so a
/// caller that must know whether a body is complete inspects `ResponseHeader` itself.
class HttpProtocol {
public:
    /// `ResponseStatusCode` while no end of a header has been seen.
    static constexpr std::uint16_t kStatusIncomplete = 4095;
    /// `ResponseStatusCode` for a number outside of the set that is known here.
    static constexpr std::uint16_t kStatusUnknown = 255;

    HttpProtocol();

    /// Sets all options back. What was built and parsed stays.
    void SetDefaultValues();

    /// Sets a flag; ignores every other option.
    void SetOption(HttpOption option);

    /// Sets a text; ignores the flags.
    void SetOption(HttpOption option, std::string value);

    /// Build the request. The reference is valid until the next build. `POST` and `GET` carry the
    /// payload. `PUT` is the header alone and expects an interim response (100-continue), after
    /// which the caller sends `RequestPayload`; with `NoExpectContinue` it carries the payload too.
    const std::string& POST();
    const std::string& PUT();
    const std::string& GET();

    /// Parses all bytes of a response that have arrived so far. A header that does not begin with
    /// "HTTP" leaves the status code as it was. Throws std::invalid_argument if there is no number
    /// where the status should stand.
    void ParseResponse(const std::string& data);

    /// The header of the last request, blank line included.
    const std::string& RequestHeader() const;
    const std::string& RequestPayload() const;

    /// 0 until something was parsed.
    std::uint16_t ResponseStatusCode() const;
    /// The last complete header, without the blank line.
    const std::string& ResponseHeader() const;
    /// All that follows the header.
    const std::string& ResponsePayload() const;

private:
    struct IntData {
        std::uint32_t flags{0};
        std::string path;
        std::string payload;
        std::string host;
        std::string connection;
        std::string contentType{"text/html"};
        std::string authorization;
        std::string contentLength{"__actual__"};
        std::string accept;
        std::uint32_t responseFlags{0};
    };

    const std::string& BuildOneShot(const char* method);
    void BeginHeader(const char* method);
    void AddField(const char* name, const std::string& value);
    void EndHeader();

    IntData mIntData;
    std::string mRequest;
    std::string mRequestHeader;
    std::string mResponseHeader;
    std::uint16_t mResponseStatusCode{0};
    std::string mResponsePayload;
};

}  // namespace nuro_common
