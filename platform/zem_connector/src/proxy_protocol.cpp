#include "proxy_protocol.h"

#include <algorithm>

#include <boost/asio/ip/address.hpp>
#include <openssl/evp.h>

namespace zem_connector {

namespace {

using State = ProxyAnswer::State;

constexpr char kSocksVersion = 5;
constexpr char kCredentialsVersion = 1;
constexpr int kNoMethod = 0xff;
constexpr char kConnect = 1;
constexpr char kIpV4 = 1;
constexpr char kName = 3;
constexpr char kIpV6 = 4;
constexpr int kMinHttpStatus = 100;
constexpr int kMinHttpSuccess = 200;
constexpr int kMinHttpRedirect = 300;

int ByteAt(std::string_view bytes, std::size_t index) {
    return static_cast<unsigned char>(bytes[index]);
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The result for an answer that is valid so far: incomplete, or malformed if too long.
ProxyAnswer Incomplete(std::string_view bytes) {
    return {bytes.size() < kMaxProxyAnswerSize ? State::kIncomplete : State::kMalformed, 0, 0};
}

std::string Base64(const std::string& text) {
    std::string result((text.size() + 2) / 3 * 4 + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(result.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    result.resize(static_cast<std::size_t>(size));
    return result;
}

/// "HTTP/1." digit, a blank, three digits, and a blank or the end of the line; 0 if it is not.
int HttpStatus(std::string_view line) {
    constexpr std::string_view kProtocol = "HTTP/1.";
    constexpr std::size_t kStatusAt = 9;
    constexpr std::size_t kStatusEnd = 12;
    const bool wellFormed =
        line.substr(0, kProtocol.size()) == kProtocol && line.size() >= kStatusEnd &&
        IsDigit(line[kProtocol.size()]) && line[kStatusAt - 1] == ' ' &&
        std::all_of(line.begin() + kStatusAt, line.begin() + kStatusEnd, IsDigit) &&
        (line.size() == kStatusEnd || line[kStatusEnd] == ' ');
    if (!wellFormed) {
        return 0;
    }
    const int status = (line[kStatusAt] - '0') * 100 + (line[kStatusAt + 1] - '0') * 10 +
                       (line[kStatusAt + 2] - '0');
    return status >= kMinHttpStatus ? status : 0;
}

}  // namespace

std::string HttpConnectRequest(const ProxyTarget& target, const ProxyCredentials& credentials) {
    const bool isIpV6 = target.host.find(':') != std::string::npos;
    const std::string authority =
        (isIpV6 ? "[" + target.host + "]" : target.host) + ":" + std::to_string(target.port);
    std::string request = "CONNECT " + authority + " HTTP/1.1\r\nHost: " + authority + "\r\n";
    if (!credentials.user.empty()) {
        request += "Proxy-Authorization: Basic " +
                   Base64(credentials.user + ":" + credentials.password) + "\r\n";
    }
    return request + "\r\n";
}

ProxyAnswer ParseHttpConnectAnswer(std::string_view bytes) {
    constexpr std::string_view kLineEnd = "\r\n";
    constexpr std::string_view kHeaderEnd = "\r\n\r\n";
    std::size_t begin = 0;
    for (;;) {
        const auto header = bytes.substr(begin, kMaxProxyAnswerSize - begin);
        const auto end = header.find(kHeaderEnd);
        if (end == std::string_view::npos) {
            return Incomplete(bytes);
        }
        const int status = HttpStatus(header.substr(0, header.find(kLineEnd)));
        if (status == 0) {
            return {State::kMalformed, 0, 0};
        }
        begin += end + kHeaderEnd.size();
        if (status >= kMinHttpSuccess) {
            return {status < kMinHttpRedirect ? State::kAccepted : State::kRefused, begin, status};
        }
    }
}

std::string Socks5Greeting(bool hasCredentials) {
    constexpr char kNoAuthentication = 0;
    std::string greeting{kSocksVersion, 1, kNoAuthentication};
    if (hasCredentials) {
        greeting = {kSocksVersion, 2, kNoAuthentication, static_cast<char>(kSocks5UserPassword)};
    }
    return greeting;
}

ProxyAnswer ParseSocks5Method(std::string_view bytes, bool hasCredentials) {
    constexpr std::size_t kSize = 2;
    if (!bytes.empty() && bytes[0] != kSocksVersion) {
        return {State::kMalformed, 0, 0};
    }
    if (bytes.size() < kSize) {
        return {};
    }
    const int method = ByteAt(bytes, 1);
    if (method == kNoMethod) {
        return {State::kRefused, kSize, method};
    }
    const bool offered = method == 0 || (hasCredentials && method == kSocks5UserPassword);
    return {offered ? State::kAccepted : State::kMalformed, kSize, method};
}

std::string Socks5Credentials(const ProxyCredentials& credentials) {
    return std::string{kCredentialsVersion} + static_cast<char>(credentials.user.size()) +
           credentials.user + static_cast<char>(credentials.password.size()) + credentials.password;
}

ProxyAnswer ParseSocks5CredentialsAnswer(std::string_view bytes) {
    constexpr std::size_t kSize = 2;
    if (!bytes.empty() && bytes[0] != kCredentialsVersion) {
        return {State::kMalformed, 0, 0};
    }
    if (bytes.size() < kSize) {
        return {};
    }
    const int status = ByteAt(bytes, 1);
    return {status == 0 ? State::kAccepted : State::kRefused, kSize, status};
}

std::string Socks5ConnectRequest(const ProxyTarget& target) {
    std::string request{kSocksVersion, kConnect, 0};
    boost::system::error_code noAddress;
    const auto address = boost::asio::ip::make_address(target.host, noAddress);
    const auto append = [&request](char type, const auto& bytes) {
        request += type;
        request.append(bytes.begin(), bytes.end());
    };
    if (noAddress) {
        request += kName;
        request += static_cast<char>(target.host.size());
        request += target.host;
    } else if (address.is_v4()) {
        append(kIpV4, address.to_v4().to_bytes());
    } else {
        append(kIpV6, address.to_v6().to_bytes());
    }
    request += static_cast<char>(target.port >> 8);
    request += static_cast<char>(target.port & 0xff);
    return request;
}

ProxyAnswer ParseSocks5ConnectAnswer(std::string_view bytes) {
    constexpr std::size_t kHeadSize = 4;
    constexpr std::size_t kPortSize = 2;
    if (!bytes.empty() && bytes[0] != kSocksVersion) {
        return {State::kMalformed, 0, 0};
    }
    if (bytes.size() < 2) {
        return {};
    }
    const int reply = ByteAt(bytes, 1);
    if (reply != 0) {
        // Many proxies report no more than that.
        return {State::kRefused, 2, reply};
    }
    if (bytes.size() <= kHeadSize) {
        return {};
    }
    std::size_t addressSize = 0;
    switch (bytes[3]) {
        case kIpV4:
            addressSize = 4;
            break;
        case kIpV6:
            addressSize = 16;
            break;
        case kName:
            addressSize = 1 + static_cast<std::size_t>(ByteAt(bytes, kHeadSize));
            break;
        default:
            return {State::kMalformed, 0, 0};
    }
    const std::size_t size = kHeadSize + addressSize + kPortSize;
    return bytes.size() < size ? ProxyAnswer{} : ProxyAnswer{State::kAccepted, size, reply};
}

host::SocketStatus StatusOfSocks5Reply(int reply) {
    switch (reply) {
        case 3:  // network
        case 4:  // host
            return host::kSocketUnreachable;
        case 5:
            return host::kSocketRefused;
        case 6:  // TTL expired
            return host::kSocketTimeout;
        default:
            return host::kSocketProxyFailed;
    }
}

}  // namespace zem_connector
