#pragma once

#include <string_view>

namespace simulator::page {

/// A file of the page, compiled in.
struct Asset {
    /// As the page asks for it; empty for the page itself.
    std::string_view path;
    std::string_view mediaType;
    std::string_view content;
};

/// Null if there is none; nothing is ever looked up in a file system.
const Asset* FindAsset(std::string_view path);

}  // namespace simulator::page
