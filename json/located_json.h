// JSON that knows on which line of its file each value stands.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace passbook {

struct LocatedJson {
    nlohmann::json root;
    std::map<std::string, int> lines;  // by JSON pointer (RFC 6901), "/steps/3/x"; the first line is 1

    /// Where a value stands, or the nearest one around it.
    [[nodiscard]] int lineOf(std::string path) const;

    /// Reads a text. Returns what is wrong with it, with the line, or an empty text. A key that stands twice in an
    /// object is wrong: one of the two would be lost.
    [[nodiscard]] std::string read(std::string_view text);
};

}  // namespace passbook
