// Files as a whole, base64 text, names for temporary files, and cutting a text into lines.
#pragma once

#include <sys/types.h>

#include <limits>
#include <memory>

#include "image/handles.h"

namespace passbook {

/// The directory for the printing functions' temporary files: the current one.
extern char TMP_PATH[256];

/// Room that a name from GetTempFileName needs.
inline constexpr int tempNameBytes = 256;

/// Opens a file of the host's for reading. Null when it cannot be opened, for a null path, and for a pipe: that would
/// hold the caller until somebody writes into it.
[[nodiscard]] FileHandle openForReading(const char* path);

/// The bytes of an open file; 0 for what has no size.
[[nodiscard]] long sizeOf(const FileHandle& file);

/// A file of the host's that is being written, in place of what was there. It is whole in the end or gone: the host
/// looks whether its file is there.
class OutputFile {
 public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    /// Removes what has been created, unless commit() had it whole. Behind a symbolic link that is the file it leads
    /// to. A device stays what it is.
    ~OutputFile() { discard(); }

    /// False when it cannot be created; so it is with a pipe that nobody reads, which would hold the caller. `path`
    /// must outlive this object.
    [[nodiscard]] bool create(const char* path);
    [[nodiscard]] std::FILE* get() const { return file_.get(); }
    /// See the function of that name; for a file that was just created.
    void bufferLargely() { passbook::bufferLargely(file_); }
    /// Closes the file. False, and it is gone, when not all of it could be written.
    [[nodiscard]] bool commit();

 private:
    void discard();

    FileHandle file_;
    const char* path_ = nullptr;  // of what is to be removed
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

/// Reads a whole file of at most `most` bytes into a new buffer of its length, without a zero behind it; release it
/// with freeFileData. 0; -2 the file cannot be opened, is longer, or there is no memory; -3 what was read is not as
/// long as the file. `*buffer` is null after every failure.
[[nodiscard]] int getFileData(const char* path, unsigned char** buffer, int* length,
                              int most = std::numeric_limits<int>::max());

/// Releases what getFileData handed out. Null is ignored.
void freeFileData(unsigned char* buffer);

struct FreeFileData {
    void operator()(unsigned char* data) const { freeFileData(data); }
};
/// Owns what getFileData handed out.
using FileContents = std::unique_ptr<unsigned char, FreeFileData>;

/// Writes a file that only the user can read, of `length` bytes; what was there is replaced. A failed write
/// is not reported. 0; -3 null, or a negative length; -2 the file cannot be created.
[[nodiscard]] int saveFileData(const char* path, const unsigned char* buffer, int length);

/// Decodes base64 (RFC 4648, section 4; line feeds, carriage returns and spaces are skipped, but count in
/// `length`). A pad character shortens its own group and every later one by a byte, so that only the last
/// group's are harmless. `out` has room for 3 x length / 4 bytes. 0; -1 null, a length below 1, or a
/// character that is not of the alphabet
/// (`*outLength` is then as it was); -2 a length that is not a multiple of 4.
[[nodiscard]] int base64_decode(const unsigned char* text, int length, unsigned char* out, int* outLength);

/// Makes the name of a temporary file: ".tmp_", the local date and time, and a counter that goes on with
/// every call and starts again from 0 behind its largest value. `name`: tempNameBytes bytes. `place`: the
/// name's directory, or a file beside which it is to lie: what it has up to its last slash. Without a slash
/// the name has no directory. Makes no file. A directory too long for the name leaves the name empty: nothing
/// can be created under it.
void GetTempFileName(char* name, const char* place);

/// GetTempFileName, but a name that is taken already (by another process that began in the same second) is passed over.
void takeTempFileName(char* name, const char* place);

/// Makes the temporary file `name` and opens it for writing: empty, readable by nobody but the user, and never through a
/// link that somebody else left there under that name. Null when it cannot be made.
[[nodiscard]] FileHandle createTempFile(const char* name);

/// Cuts a text at the first `separator`, which becomes 0. Returns the number of bytes before it, or before
/// the first 0 byte, or `length` when neither is there.
[[nodiscard]] int stripString(unsigned char* text, int length, char separator);

}  // namespace passbook
