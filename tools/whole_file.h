// Files that are there whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace passbook::tool {

/// What keeps a file from being written under that name, before there is anything to write; empty if nothing does.
[[nodiscard]] std::string problemWithTarget(const std::string& path);

/// Puts a file there in place of the one of that name, at once: a reader never sees half of it, and when it fails, the
/// old one stays. Returns what is wrong, or an empty text.
[[nodiscard]] std::string writeWhole(const std::string& path, std::string_view bytes);

}  // namespace passbook::tool
