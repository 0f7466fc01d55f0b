// Owners for the C library's resources.
#pragma once

#include <cstdio>
#include <memory>

namespace passbook {

struct CloseFile {
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
};

/// An open file that closes itself. Where the result of closing matters, release() it and call fclose.
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace passbook
