#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace someip {

/// Tells when something in a directory was written, came or went. All calls, and the handler, on
/// the executor that it was made with.
class DirectoryWatch : public std::enable_shared_from_this<DirectoryWatch> {
public:
    /// Null if the directory can't be watched. `changed` is told whether the watch goes on: it ends
    /// with the directory itself.
    static std::shared_ptr<DirectoryWatch> Open(const boost::asio::any_io_executor& executor,
                                                const std::string& directory,
                                                std::function<void(bool watching)> changed);

    DirectoryWatch(const boost::asio::any_io_executor& executor, int descriptor,
                   std::function<void(bool watching)> changed);

    /// The handler is called no more.
    void Close();

private:
    void Wait();
    void Read();

    boost::asio::posix::stream_descriptor mInotify;
    std::function<void(bool watching)> mChanged;
};

}  // namespace someip
