#include "image/convert.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string_view>

#include "image/file.h"
#include "image/handles.h"

namespace passbook {

namespace {

/// The signature of the PNG format (RFC 2083, section 3.1).
constexpr std::array<unsigned char, 8> PNG_HEADER = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

/// Gives what was a temporary file the permissions that any new file of the user's gets. The mask is read, for asking
/// for it with umask() changes it, for a moment, under the feet of the host's other threads.
void publish(const char* path) {
    unsigned mask = 0077;
    const FileHandle status(std::fopen("/proc/self/status", "r"));
    char line[256];
    while (status != nullptr && std::fgets(line, sizeof line, status.get()) != nullptr)
        if (std::sscanf(line, "Umask: %o", &mask) == 1)
            break;
    (void)chmod(path, 0666 & ~mask);
}

}  // namespace

IMAGE_FORMAT identifyHeaderFormat(const unsigned char* header) {
    if (header[0] == 'B' && header[1] == 'M')
        return formatBmp;
    if (header[0] == 0xFF && header[1] == 0xD8)
        return formatJpeg;
    if (std::memcmp(header, PNG_HEADER.data(), PNG_HEADER.size()) == 0)
        return formatPng;
    return notRecognised;
}

int identifyFileFormat(const char* path, IMAGE_FORMAT* format) {
    std::array<unsigned char, 8> header{};
    const FileHandle file = openForReading(path);
    if (file == nullptr)
        return -2;
    (void)(std::fread(header.data(), 1, header.size(), file.get()) > 0);  // a shorter file ends in zeros
    *format = identifyHeaderFormat(header.data());
    return 0;
}

bool putUnderName(const char* bmp, const char* destination) {
    if (access(bmp, F_OK) != 0)
        return false;  // the encoder would put an empty file under the final name
    if (std::string_view(destination).find(".jpg") != std::string_view::npos) {
        const bool saved = saveAsJPG(bmp, destination, 20) == 0;
        (void)std::remove(bmp);
        return saved;
    }
    if (std::rename(bmp, destination) != 0)
        return false;
    publish(destination);
    return true;
}

int saveBitmapData(const char* bmp, const char* destination) {
    (void)putUnderName(bmp, destination);  // the host sees by the file whether there is one
    return 0;
}

}  // namespace passbook
