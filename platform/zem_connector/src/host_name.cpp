#include "host_name.h"

#include <boost/asio/ip/address.hpp>

namespace zem_connector {

namespace {

constexpr std::size_t kMaxSize = 255;
constexpr const char* kCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.:%";

}  // namespace

bool IsHostName(const std::string& text) {
    return !text.empty() && text.size() <= kMaxSize &&
           text.find_first_not_of(kCharacters) == std::string::npos;
}

bool IsIpAddress(const std::string& text) {
    boost::system::error_code error;
    boost::asio::ip::make_address(text, error);
    return !error;
}

}  // namespace zem_connector
