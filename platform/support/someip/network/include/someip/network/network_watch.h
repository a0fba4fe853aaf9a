#pragma once

#include <functional>
#include <memory>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace someip {

/// Reports that network interfaces of this machine, or their IPv4 addresses, have changed
/// (rtnetlink(7)). A socket gets no error when the interface of its multicast group is removed, so
/// only this shows it. All calls, and the handler, on the executor that it was made with.
class NetworkWatch : public std::enable_shared_from_this<NetworkWatch> {
public:
    /// Watches until it is closed. Null where that is not permitted.
    static std::shared_ptr<NetworkWatch> Open(const boost::asio::any_io_executor& executor,
                                              std::function<void()> changed);

    NetworkWatch(const boost::asio::any_io_executor& executor, int descriptor,
                 std::function<void()> changed);

    /// The handler is not called afterwards.
    void Close();

private:
    void Wait();

    boost::asio::posix::stream_descriptor mSocket;
    std::function<void()> mChanged;
};

}  // namespace someip
