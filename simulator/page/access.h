#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <boost/beast/http/fields.hpp>

namespace simulator::page {

/// Who may talk to the page's server: whoever knows the token in its address, by a browser that
/// shows this very page, or by no browser at all. Other pages in the same browser may not, and no
/// name but the loopback's leads here.
class Access {
public:
    /// Makes a token of 256 random bits. Throws std::system_error if there are none.
    explicit Access(std::uint16_t port);

    /// "http://127.0.0.1:PORT/TOKEN/"
    std::string Address() const;

    /// False for a foreign `Host` or `Origin`, or if a browser reports that another site asks.
    bool IsAllowed(const boost::beast::http::fields& header) const;

    /// What a request's target names behind the token; nothing without the right token, which is
    /// compared in constant time.
    std::optional<std::string> PathBehindToken(std::string_view target) const;

private:
    std::string mPort;
    std::string mToken;
};

}  // namespace simulator::page
