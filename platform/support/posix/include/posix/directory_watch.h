#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <posix/unique_fd.h>

namespace posix {

/// Reports when a file in a directory is written, replaced, moved or removed, or gets other
/// attributes (inotify(7)). The file need not exist. All calls, and the handler, on the executor
/// that it was made with; changes of one moment may share a report.
class DirectoryWatch : public std::enable_shared_from_this<DirectoryWatch> {
public:
    struct Report {
        /// Something has changed, or may have: also set when the system has lost reports.
        bool changed{false};
        /// False when the directory itself has gone; this report is then the last one.
        bool watching{true};
    };
    using Handler = std::function<void(const Report&)>;

    /// Watches the file `name` in `directory`, or all its files where the name is empty. Null, with
    /// `errno` set, if the directory can't be watched.
    static std::shared_ptr<DirectoryWatch> Open(const boost::asio::any_io_executor& executor,
                                                const std::string& directory,
                                                const std::string& name, Handler handler);

    DirectoryWatch(const boost::asio::any_io_executor& executor, std::string name, Handler handler);

    /// The handler is not called again.
    void Close();

private:
    bool Assign(UniqueFd inotify);
    void Wait();
    void Read();
    Report Parse(const char* events, std::size_t size) const;

    boost::asio::posix::stream_descriptor mInotify;
    const std::string mName;
    Handler mHandler;
};

}  // namespace posix
