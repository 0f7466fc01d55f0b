#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "sim/program/descriptor.h"

namespace passbook::sim {

/// A directory for temporary files that goes when this process does, whatever ends it: a small helper process waits for
/// that and removes it.
class ScratchDirectory {
 public:
    /// Null if there can be none; `error` then says why. From here on TMPDIR names it. GLib remembers what it finds
    /// there when it first looks.
    [[nodiscard]] static std::unique_ptr<ScratchDirectory> make(std::string& error);
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    /// TMPDIR as it was before: a program that is started must not find its files gone.
    void restoreSetting() const;

 private:
    ScratchDirectory() = default;

    pid_t helper_ = -1;
    Descriptor alive_;  // the helper reads from its other end, and comes to the end when this one is closed
    std::optional<std::string> former_;  // TMPDIR
};

}  // namespace passbook::sim
