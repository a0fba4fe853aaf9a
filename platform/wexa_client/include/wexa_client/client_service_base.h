#pragma once

#include <lumo/connection_members.h>

namespace wexa_client {

/// One connection to the access layer with all that belongs to it. Its destruction stops the
/// connection, unless a copy of a member is kept.
struct ClientServiceBase : lumo::ConnectionMembers {};

}  // namespace wexa_client
