#include "name_lookup.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include <netdb.h>

namespace zem_connector {

namespace {

constexpr std::size_t kMaxAddresses = 16;

}  // namespace

NameLookupResult SystemNameLookup(const std::string& host, unsigned short port) {
    NameLookupResult result;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* list = nullptr;
    const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list);
    if (error != 0) {
        result.status = error == EAI_MEMORY || error == EAI_SYSTEM ? host::kSocketFailed
                                                                   : host::kSocketNameNotFound;
        result.detail = gai_strerror(error);
        return result;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        if (result.addresses.size() == kMaxAddresses) {
            break;
        }
        boost::asio::ip::tcp::endpoint address;
        if (entry->ai_addrlen <= address.capacity()) {
            std::memcpy(address.data(), entry->ai_addr, entry->ai_addrlen);
            address.resize(entry->ai_addrlen);
            result.addresses.push_back(address);
        }
    }
    result.addresses = InterleaveFamilies(result.addresses);
    return result;
}

Endpoints InterleaveFamilies(const Endpoints& addresses) {
    Endpoints rest = addresses;
    Endpoints result;
    while (!rest.empty()) {
        const auto turn = std::find_if(rest.begin(), rest.end(), [&result](const auto& address) {
            return result.empty() || address.protocol() != result.back().protocol();
        });
        const auto next = turn == rest.end() ? rest.begin() : turn;
        result.push_back(*next);
        rest.erase(next);
    }
    return result;
}

}  // namespace zem_connector
