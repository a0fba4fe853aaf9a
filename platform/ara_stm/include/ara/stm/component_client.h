#pragma once

#include <functional>
#include <memory>
#include <string>

namespace ara::stm {

/// A component as state management knows it.
///
/// On the host platform a component listens on the Unix stream socket `<component>.sock` (mode
/// 0600) in the directory $ARA_STM_DIR, /var/run/qel/stm by default, and speaks lines of ASCII:
/// - "REQUEST <sequence> <state>" asks the component to take a state; the sequence number is a
///   decimal of 32 bits, the state up to 64 printable characters without a blank;
/// - "STATE <sequence> <state> <code>" goes to all who are connected when the component confirms;
/// - "ERROR malformed request" answers anything else, and ends the connection.
/// Up to eight may be connected; a line has at most 128 bytes.
class ComponentClient {
public:
    virtual ~ComponentClient() = default;

    /// Confirms the request `sequence`: `state` has been taken (`code` 0) or not. May be called
    /// from any thread, from within the handler too.
    virtual void confirmStateChange(unsigned int sequence, const std::string& state,
                                    unsigned int code) const = 0;
};

/// Called with each request, on a thread of the client; must not destroy the client.
using StateRequestHandler =
    std::function<void(const ComponentClient&, unsigned int, const std::string&)>;

/// Announces `component` to state management. Throws std::runtime_error if that is not possible,
/// above all while another process is there under this name. Without the directory there is no
/// state management: the client is created and never gets a request.
std::unique_ptr<ComponentClient> createComponentClient(const std::string& component,
                                                       StateRequestHandler handler);

}  // namespace ara::stm
