#include "image/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

namespace passbook {

// This module's process-wide state.
char TMP_PATH[256] = ".";

namespace {

/// Counts the temporary names, so that two within a second differ.
std::int32_t index = 0;

// Markers among the values of base64_suffix_map.
enum : unsigned char { padCharacter = 0xFE, skippedCharacter = 0xFD, invalidCharacter = 0xFF };

consteval std::array<unsigned char, 256> makeBase64Map() {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<unsigned char, 256> map{};
    map.fill(invalidCharacter);
    for (std::size_t value = 0; value < alphabet.size(); ++value)
        map[static_cast<unsigned char>(alphabet[value])] = static_cast<unsigned char>(value);
    map['='] = padCharacter;
    for (const char skipped : {'\n', '\r', ' '})
        map[static_cast<unsigned char>(skipped)] = skippedCharacter;
    return map;
}

constexpr auto base64_suffix_map = makeBase64Map();

}  // namespace

FileHandle openForReading(const char* path) {
    const int descriptor = path != nullptr ? open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    if (descriptor < 0)
        return nullptr;
    struct stat status {};
    const bool pipe = fstat(descriptor, &status) != 0 || S_ISFIFO(status.st_mode);
    std::FILE* const file = pipe ? nullptr : fdopen(descriptor, "rb");
    if (file == nullptr)
        (void)close(descriptor);
    return FileHandle(file);
}

long sizeOf(const FileHandle& file) {
    struct stat status {};
    return fstat(fileno(file.get()), &status) == 0 ? static_cast<long>(status.st_size) : 0;
}

bool OutputFile::create(const char* path) {
    constexpr mode_t everybody = 0666;  // less what the user's mask takes away
    // Without O_NONBLOCK a pipe would hold the caller until somebody reads it.
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, everybody);
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0)
        return false;
    path_ = S_ISREG(status.st_mode) ? path : nullptr;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    (void)fcntl(descriptor, F_SETFL, 0);  // what is written waits for a slow device
    file_.reset(fdopen(descriptor, "wb"));
    if (file_ != nullptr)
        return true;
    (void)close(descriptor);
    discard();
    return false;
}

bool OutputFile::commit() {
    const bool written = std::fflush(file_.get()) == 0 && std::ferror(file_.get()) == 0;
    // Some file systems tell of a full disk only when the file is closed.
    if (std::fclose(file_.release()) != 0 || !written) {
        discard();
        return false;
    }
    path_ = nullptr;
    return true;
}

void OutputFile::discard() {
    char target[PATH_MAX];
    struct stat status {};
    // What the path leads to by now may be another file.
    if (path_ != nullptr && realpath(path_, target) != nullptr && stat(target, &status) == 0 &&
        status.st_dev == device_ && status.st_ino == inode_ && unlink(target) != 0)
        (void)(truncate(target, 0) == 0);  // in a directory that is not ours to change; nothing more can be done
    path_ = nullptr;
    file_.reset();
}

int getFileData(const char* path, unsigned char** buffer, int* length, int most) {
    *buffer = nullptr;
    const FileHandle file = openForReading(path);
    if (file == nullptr)
        return -2;
    (void)std::fseek(file.get(), 0, SEEK_END);  // where it fails, so does the next line
    const long end = std::ftell(file.get());
    // What cannot tell its length (a device), and what tells an absurd one (a directory), is nothing to hold in
    // memory.
    if (end < 0 || end > most || std::fseek(file.get(), 0, SEEK_SET) != 0)
        return -2;
    *length = static_cast<int>(end);
    const auto size = static_cast<std::size_t>(end);
    std::unique_ptr<unsigned char[]> data(new (std::nothrow) unsigned char[size]);
    if (data == nullptr)
        return -2;
    constexpr std::size_t pieceBytes = 8192;
    std::size_t total = 0;
    while (total < size) {
        const std::size_t count = std::fread(data.get() + total, 1, std::min(pieceBytes, size - total), file.get());
        if (count == 0)
            return -3;
        total += count;
    }
    *buffer = data.release();
    return 0;
}

void freeFileData(unsigned char* buffer) {
    delete[] buffer;
}

int saveFileData(const char* path, const unsigned char* buffer, int length) {
    if (path == nullptr || buffer == nullptr || length < 0)
        return -3;
    const FileHandle file = createTempFile(path);
    if (file == nullptr)
        return -2;
    // A full disk is found by whoever reads the file and misses its rows.
    (void)std::fwrite(buffer, 1, static_cast<std::size_t>(length), file.get());
    return 0;
}

int base64_decode(const unsigned char* text, int length, unsigned char* out, int* outLength) {
    if (text == nullptr || out == nullptr || outLength == nullptr || length < 1)
        return -1;
    if (length % 4 != 0)
        return -2;
    std::uint32_t accumulator = 0;
    int values = 0;
    int bytesPerGroup = 3;
    int written = 0;
    for (int i = 0; i < length; ++i) {
        // Four characters of the alphabet, as nearly all are. The markers alone have a highest bit.
        for (; values == 0 && bytesPerGroup == 3 && length - i >= 4; i += 4, written += 3) {
            const unsigned a = base64_suffix_map[text[i]], b = base64_suffix_map[text[i + 1]],
                           c = base64_suffix_map[text[i + 2]], d = base64_suffix_map[text[i + 3]];
            if (((a | b | c | d) & 0x80) != 0)
                break;
            out[written] = static_cast<unsigned char>(a << 2 | b >> 4);
            out[written + 1] = static_cast<unsigned char>(b << 4 | c >> 2);
            out[written + 2] = static_cast<unsigned char>(c << 6 | d);
        }
        if (i == length)
            break;
        unsigned char value = base64_suffix_map[text[i]];
        if (value == invalidCharacter)
            return -1;
        if (value == skippedCharacter)
            continue;
        if (value == padCharacter) {
            value = 0;
            --bytesPerGroup;
        }
        accumulator = accumulator << 6 | value;
        if (++values < 4)
            continue;
        out[written++] = static_cast<unsigned char>(accumulator >> 16);
        if (bytesPerGroup > 1)
            out[written++] = static_cast<unsigned char>(accumulator >> 8);
        if (bytesPerGroup > 2)
            out[written++] = static_cast<unsigned char>(accumulator);
        accumulator = 0;
        values = 0;
    }
    *outLength = written;
    return 0;
}

void GetTempFileName(char* name, const char* place) {
    const std::string_view path(place);
    const std::string_view directory = path.substr(0, path.rfind('/') + 1);  // empty without a slash
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    (void)localtime_r(&now, &local);  // fails only for years that no clock shows
    const int written = std::snprintf(name, tempNameBytes, "%.*s.tmp_%04d%02d%02d%02d%02d%02d%d",
                                      static_cast<int>(std::min<std::size_t>(directory.size(), tempNameBytes)),
                                      directory.data(), local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                                      local.tm_hour, local.tm_min, local.tm_sec, index);
    if (written < 0 || written >= tempNameBytes)
        name[0] = '\0';  // a name cut short could be another file's
    index = index == std::numeric_limits<std::int32_t>::max() ? 0 : index + 1;
}

void takeTempFileName(char* name, const char* place) {
    constexpr int mostTries = 1000;  // a directory with that many is not ours to search
    struct stat status {};
    int tries = 0;
    do {
        GetTempFileName(name, place);
    } while (lstat(name, &status) == 0 && ++tries < mostTries);
}

FileHandle createTempFile(const char* name) {
    // Removing takes away a link, not what it points to; creating exclusively then fails if another came
    // since.
    (void)unlink(name);
    const int descriptor = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        return nullptr;
    std::FILE* const file = fdopen(descriptor, "wb");
    if (file == nullptr)
        (void)close(descriptor);
    return FileHandle(file);
}

int stripString(unsigned char* text, int length, char separator) {
    int count = 0;
    while (count < length && text[count] != 0) {
        if (text[count] == static_cast<unsigned char>(separator)) {
            text[count] = 0;
            break;
        }
        ++count;
    }
    return count;
}

}  // namespace passbook
