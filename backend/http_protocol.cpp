#include "backend/http_protocol.h"

#include <utility>

namespace nuro_common {

namespace {

constexpr const char* kHeaderEnd = "\r\n\r\n";
constexpr std::size_t kHeaderEndSize = 4;
constexpr const char* kActualLength = "__actual__";
constexpr std::uint32_t kFlag = 1;

bool IsKnownStatus(std::uint16_t status) {
    const auto between = [status](int first, int last) {
        return status >= first && status <= last;
    };
    return between(100, 101) || between(200, 206) || between(301, 305) || status == 307 ||
           between(400, 417) || between(500, 505);
}

std::uint16_t ReadStatus(const std::string& data) {
    const auto blank = data.find(' ');
    const auto begin = blank == std::string::npos ? 0 : blank + 1;
    const int number = std::stoi(data.substr(begin, 3));
    const auto status = static_cast<std::uint16_t>(static_cast<unsigned int>(number) & 0xFFFFU);
    return IsKnownStatus(status) ? status : HttpProtocol::kStatusUnknown;
}

}  // namespace

HttpProtocol::HttpProtocol() = default;

void HttpProtocol::SetDefaultValues() {
    mIntData = IntData{};
}

void HttpProtocol::SetOption(HttpOption option) {
    if (option == HttpOption::NoExpectContinue) {
        mIntData.flags |= kFlag;
    } else if (option == HttpOption::HeaderOnly) {
        mIntData.responseFlags |= kFlag;
    }
}

void HttpProtocol::SetOption(HttpOption option, std::string value) {
    switch (option) {
        case HttpOption::Path:
            mIntData.path = std::move(value);
            break;
        case HttpOption::Host:
            mIntData.host = std::move(value);
            break;
        case HttpOption::Connection:
            mIntData.connection = std::move(value);
            break;
        case HttpOption::ContentType:
            mIntData.contentType = std::move(value);
            break;
        case HttpOption::ContentLength:
            mIntData.contentLength = std::move(value);
            break;
        case HttpOption::Authorization:
            mIntData.authorization = std::move(value);
            break;
        case HttpOption::Accept:
            mIntData.accept = std::move(value);
            break;
        case HttpOption::Payload:
            mIntData.payload = std::move(value);
            break;
        default:
            break;
    }
}

const std::string& HttpProtocol::POST() {
    return BuildOneShot("POST ");
}

const std::string& HttpProtocol::GET() {
    return BuildOneShot("GET ");
}

const std::string& HttpProtocol::PUT() {
    const bool expectContinue = (mIntData.flags & kFlag) == 0;
    BeginHeader("PUT ");
    if (expectContinue) {
        AddField("Expect", "100-continue");
    }
    EndHeader();
    if (!expectContinue) {
        mRequest += mIntData.payload;
    }
    return mRequest;
}

const std::string& HttpProtocol::BuildOneShot(const char* method) {
    BeginHeader(method);
    AddField("Authorization", mIntData.authorization);
    EndHeader();
    mRequest += mIntData.payload;
    return mRequest;
}

void HttpProtocol::BeginHeader(const char* method) {
    mRequest = method;
    mRequest += mIntData.path;
    mRequest += " HTTP/1.1";
    AddField("Host", mIntData.host);
    AddField("Content-Type", mIntData.contentType);
    AddField("Accept", mIntData.accept);
}

void HttpProtocol::AddField(const char* name, const std::string& value) {
    if (value.empty()) {
        return;
    }
    mRequest += "\r\n";
    mRequest += name;
    mRequest += ": ";
    mRequest += value;
}

void HttpProtocol::EndHeader() {
    AddField("Connection", mIntData.connection);
    AddField("Content-Length", mIntData.contentLength == kActualLength
                                   ? std::to_string(mIntData.payload.size())
                                   : mIntData.contentLength);
    mRequest += kHeaderEnd;
    mRequestHeader = mRequest;
}

void HttpProtocol::ParseResponse(const std::string& data) {
    mResponsePayload.clear();
    const auto headerSize = data.find(kHeaderEnd);
    if (headerSize == std::string::npos) {
        mResponseStatusCode = kStatusIncomplete;
        return;
    }
    mResponseHeader = data.substr(0, headerSize);
    if (mResponseHeader.compare(0, 4, "HTTP") != 0) {
        return;
    }
    mResponseStatusCode = ReadStatus(data);
    if ((mIntData.responseFlags & kFlag) != 0) {
        return;
    }
    mResponsePayload = data.substr(headerSize + kHeaderEndSize);
}

const std::string& HttpProtocol::RequestHeader() const {
    return mRequestHeader;
}

const std::string& HttpProtocol::RequestPayload() const {
    return mIntData.payload;
}

std::uint16_t HttpProtocol::ResponseStatusCode() const {
    return mResponseStatusCode;
}

const std::string& HttpProtocol::ResponseHeader() const {
    return mResponseHeader;
}

const std::string& HttpProtocol::ResponsePayload() const {
    return mResponsePayload;
}

}  // namespace nuro_common
