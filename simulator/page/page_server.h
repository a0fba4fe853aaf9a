#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "simulator/page/unit.h"

namespace simulator::page {

/// Serves the page and what it shows of the units, over HTTP/1.1 on 127.0.0.1 alone. Behind the
/// token in the address there are the page's files, `units/N/events` (what a unit does, as
/// server-sent events) and `units/N/commands` (`POST`, one command as JSON); all else is refused.
/// Requests are served on the thread that calls `Run`.
class PageServer {
public:
    /// Listens from here on. Throws std::system_error if it cannot.
    /// @param port 0 for any free one
    /// @param startsServices whether the services are started at once
    PageServer(std::uint16_t port, std::vector<UnitSettings> units, bool startsServices = false);
    ~PageServer();
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;

    /// What to open in the browser, with the token in it.
    std::string Address() const;

    /// Lets SIGTERM and SIGINT stop it.
    void StopOnSignals();

    /// Serves until it is stopped and the services that the page has started have ended.
    void Run();

    /// Any thread may call it.
    void Stop();

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace simulator::page
