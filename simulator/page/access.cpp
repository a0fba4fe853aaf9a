#include "simulator/page/access.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <boost/beast/http/field.hpp>
#include <openssl/crypto.h>
#include <sys/random.h>

namespace simulator::page {

namespace {

namespace http = boost::beast::http;

constexpr std::size_t kTokenBytes = 32;
constexpr const char* kHexDigits = "0123456789abcdef";

std::string MakeToken() {
    std::array<std::uint8_t, kTokenBytes> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "no random numbers");
    }
    std::string token;
    for (const std::uint8_t byte : bytes) {
        token += kHexDigits[byte >> 4U];
        token += kHexDigits[byte & 0xFU];
    }
    return token;
}

}  // namespace

Access::Access(std::uint16_t port) : mPort(std::to_string(port)), mToken(MakeToken()) {}

std::string Access::Address() const {
    return "http://127.0.0.1:" + mPort + "/" + mToken + "/";
}

bool Access::IsAllowed(const http::fields& header) const {
    const std::string host(header[http::field::host]);
    if (header.count(http::field::host) != 1 ||
        (host != "127.0.0.1:" + mPort && host != "localhost:" + mPort)) {
        return false;
    }
    if (header.count(http::field::origin) > 1 ||
        (header.count(http::field::origin) == 1 &&
         header[http::field::origin] != "http://" + host)) {
        return false;
    }
    // "none" is what the user typed in or opened.
    const auto site = header["Sec-Fetch-Site"];
    return site.empty() || site == "same-origin" || site == "none";
}

std::optional<std::string> Access::PathBehindToken(std::string_view target) const {
    const std::size_t size = mToken.size();
    if (target.size() < size + 2 || target.front() != '/' || target.at(size + 1) != '/' ||
        CRYPTO_memcmp(target.data() + 1, mToken.data(), size) != 0) {
        return std::nullopt;
    }
    return std::string(target.substr(size + 2));
}

}  // namespace simulator::page
