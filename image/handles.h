// Owners for the C library's resources.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>

namespace passbook {

struct CloseFile {
    std::unique_ptr<char[]> buffer;  // the file's own (see bufferLargely), which must outlive it
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
};

/// An open file that closes itself. Where the result of closing matters, release() it and call fclose.
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

/// Bytes that go to the system, or come from it, in one call where pictures are read and written. Beyond it the calls
/// cost next to nothing, and it stays in the processor's cache.
inline constexpr std::size_t largeBufferBytes = std::size_t{64} * 1024;

/// Gives a file that was just opened a large buffer. The C library's own 4 KB make the calls dearer than the pixels, and
/// setvbuf changes nothing unless it is handed a buffer. Without memory for it things go on as they were.
inline void bufferLargely(FileHandle& file) {
    char* const buffer = new (std::nothrow) char[largeBufferBytes];
    file.get_deleter().buffer.reset(buffer);
    if (buffer != nullptr)
        (void)std::setvbuf(file.get(), buffer, _IOFBF, largeBufferBytes);
}

}  // namespace passbook
