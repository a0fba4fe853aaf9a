#pragma once

#include <cstdint>

namespace nuro_common {

/// What `HttpProtocol::SetOption` sets. The two flags take no value.
enum class HttpOption : std::uint8_t {
    /// Flag: a `PUT` carries its payload at once and requests no interim response.
    NoExpectContinue = 1,
    /// The request target, written as it stands.
    Path = 2,
    Host = 3,
    Connection = 4,
    /// "text/html" unless set.
    ContentType = 5,
    /// The length of the payload unless set; empty leaves the field out.
    ContentLength = 6,
    /// Never written by a `PUT`.
    Authorization = 7,
    Accept = 8,
    /// The body, any bytes.
    Payload = 9,
    /// Flag: only the header of a response is wanted.
    HeaderOnly = 10,
};

}  // namespace nuro_common
