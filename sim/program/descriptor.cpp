#include "sim/program/descriptor.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace passbook::sim {

Descriptor::~Descriptor() {
    if (valid())
        close(value_);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
}

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            return false;
        bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace passbook::sim
