// The two families of printers, as the user names them.
#pragma once

namespace passbook::tool {

enum class Family { oli, oki };

[[nodiscard]] constexpr const char* nameOf(Family family) {
    return family == Family::oli ? "oli" : "oki";
}

}  // namespace passbook::tool
