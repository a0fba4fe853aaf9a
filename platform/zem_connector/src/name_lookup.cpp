#include "name_lookup.h"

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
        SocketAddress address;
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = entry->ai_addrlen;
        result.addresses.push_back(address);
    }
    return result;
}

}  // namespace zem_connector
