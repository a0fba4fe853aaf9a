#pragma once

#include <functional>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

namespace zem_connector {

/// Tells when a file was replaced, rewritten or removed.
///
/// It watches the file's directory, so the file need not exist. While the directory itself does
/// not exist, it looks for it twice a second.
class FileWatcher {
public:
    /// `changed` is called on the thread that runs `context`.
    FileWatcher(boost::asio::io_context& context, const std::string& path,
                std::function<void()> changed);

    /// Changes from here on are noticed.
    void Start();

private:
    bool Open();
    void RetryLater();
    void WaitForEvents();
    void ReadEvents();

    std::string mDirectory;
    std::string mName;
    std::function<void()> mChanged;
    boost::asio::posix::stream_descriptor mInotify;
    boost::asio::steady_timer mRetryTimer;
};

}  // namespace zem_connector
