#pragma once

#include <cstdint>

namespace zem_connector {

/// How an attempt to connect ended.
struct SocketResult {
    /// 0 means connected.
    std::int32_t status{0};
    /// The connected socket, which now belongs to the receiver; -1 if there is none.
    std::int32_t socketFileDescriptor{-1};
};

/// Receiver of one `SocketConnect`'s result. Called on a thread of the library.
class ZemSocketCallbackIf {
public:
    virtual ~ZemSocketCallbackIf() = default;

    virtual void ZemSocketResult(SocketResult result) = 0;
};

}  // namespace zem_connector
