#pragma once

#include <cstdint>
#include <string>

namespace vintrel {

/// The parts of the backend's URL that a socket and an HTTP request need.
struct UrlData {
    std::string host;
    /// 1 to 65535; 0 until a URL was parsed.
    std::uint16_t port{0};
    /// From the first "/" after the scheme to the end, query included; "/" if there is none.
    std::string path;
};

/// Splits a URL of the form scheme://host[:port][/path].
///
/// This is no general URL parser (RFC 3986): the first colon after the scheme ends the host
/// wherever it is, and nothing is decoded. Without a port, "http://" means 80 and
/// "https://" for 443. False is a failure, which has been logged; `urlData` may then be partly
/// written and must not be used.
bool GetUrlData(const std::string& url, UrlData& urlData);

}  // namespace vintrel
