#pragma once

#include <cstdint>

namespace zem_connector {

/// How an attempt to connect ended.
struct SocketResult {
    /// 0 means connected.
    std::int32_t status{0};
    /// The connected socket, blocking and close-on-exec, which the receiver owns; -1 on failure.
    std::int32_t socketFileDescriptor{-1};
};

/// Receiver of one `SocketConnect`'s result. Called on a thread of the library.
class ZemSocketCallbackIf {
public:
    virtual ~ZemSocketCallbackIf() = default;

    /// The one answer to a `SocketConnect` that returned true.
    virtual void ZemSocketResult(SocketResult result) = 0;
};

}  // namespace zem_connector
