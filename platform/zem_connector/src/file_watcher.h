#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <posix/directory_watch.h>

namespace zem_connector {

/// Reports when a file was replaced, rewritten or removed.
///
/// It watches the file's directory, so the file need not exist. While the directory itself does
/// not exist, it polls for it every 500 ms. Runs on the thread of the context.
class FileWatcher {
public:
    /// `changed` is called on the thread that runs `context`.
    FileWatcher(boost::asio::io_context& context, const std::string& path,
                std::function<void()> changed);
    FileWatcher(const FileWatcher&) = delete;
    FileWatcher& operator=(const FileWatcher&) = delete;
    ~FileWatcher();

    /// Changes from here on are noticed.
    void Start();

private:
    bool Open();
    void RetryLater();
    void OnReport(const posix::DirectoryWatch::Report& report);

    boost::asio::io_context& mContext;
    std::string mDirectory;
    std::string mName;
    std::function<void()> mChanged;
    std::shared_ptr<posix::DirectoryWatch> mWatch;
    boost::asio::steady_timer mRetryTimer;
};

}  // namespace zem_connector
