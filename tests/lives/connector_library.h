#pragma once

#include <deque>

#include <zem_connector/zem_connector.h>

namespace lives {

/// The connector library in the hands of a life: what it answers at once, and what it still
/// owes an answer. One exists at a time.
struct ConnectorLibrary {
    struct Attempt {
        zem_connector::ZemSocketCallbackIf* callback;
        int id;
    };

    ConnectorLibrary() { current = this; }
    ConnectorLibrary(const ConnectorLibrary&) = delete;
    ConnectorLibrary& operator=(const ConnectorLibrary&) = delete;
    ~ConnectorLibrary() { current = nullptr; }

    inline static ConnectorLibrary* current{nullptr};

    zem_connector::SessionStatus startStatus{zem_connector::SessionStatus::kStarted};
    bool acceptsUrlQuery{true};
    bool acceptsSocket{true};

    /// Null while there is no session.
    zem_connector::ZemSessionCallbackIf* session{nullptr};
    /// Null until something was asked for.
    zem_connector::ZemServiceControllerCallbackIf* controller{nullptr};
    bool owesUrl{false};
    std::deque<Attempt> owesSockets;
    int acceptedSockets{0};
};

}  // namespace lives
