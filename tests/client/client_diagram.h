#pragma once

#include <string>

namespace client_table {

/// The transition table as a part of a Markdown page: a Mermaid diagram of the rows that change
/// the state, and tables of those that do not.
std::string Diagram();

}  // namespace client_table
