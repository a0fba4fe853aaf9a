#pragma once

#include <memory>

#include <lumo/connection_members.h>

namespace service_access {
class Connection;
}

namespace lumo_host {

/// Cuts a connection of the host's access layer, not null, into the members that lumo gives its
/// users. The connection starts with the first listener or query and ends with the last member.
/// Any thread.
lumo::ConnectionMembers MakeConnectionMembers(
    const std::shared_ptr<service_access::Connection>& connection);

}  // namespace lumo_host
