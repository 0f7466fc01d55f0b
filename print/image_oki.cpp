#include "print/image_oki.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <new>
#include <span>

#include "base/results.h"
#include "device/device.h"
#include "image/convert.h"
#include "image/file.h"
#include "print/print_oki.h"

namespace passbook {

namespace {

/// A temporary file's name, empty until one is needed.
struct TemporaryFile {
    char name[tempNameBytes] = "";

    TemporaryFile() = default;
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        // There may be none: not every step that took a name got as far as a file.
        if (name[0] != '\0')
            (void)std::remove(name);
    }

    void takeName() { takeTempFileName(name, TMP_PATH); }
};

/// What both jobs have in common once the image is a file of a known format: convert it if it is no BMP, turn it, print
/// it.
struct ImageJob {
    TemporaryFile turned, bmp, raw;  // removed from the last to the first

    [[nodiscard]] int print(const char* image, IMAGE_FORMAT format, const ImagePlace& place, bool pauses) {
        switch (format) {
            case formatBmp:
                break;
            case formatJpeg:
                (void)convertJPGtoBMP(image, bmp.name);
                image = bmp.name;
                break;
            case formatPng:
                (void)convertPNGtoBMP(image, bmp.name);
                image = bmp.name;
                break;
            default:
                return notAnImage;
        }
        if (pauses)
            pauseSeconds(1);
        if (place.turns != 0) {
            turned.takeName();
            (void)rorateImage(image, turned.name, place.turns * 90);
            image = turned.name;
        }
        return PrintBmp_OKI(image, false, true, place.xDots, place.yDots);
    }
};

IMAGE_FORMAT formatOf(std::span<const unsigned char> data) {
    std::array<unsigned char, 8> header{};
    std::copy_n(data.begin(), std::min(data.size(), header.size()), header.begin());
    return identifyHeaderFormat(header.data());
}

/// Puts the image that a stream holds, as it is or as base64 text, into a file. 0, or the job's result.
int saveStream(const unsigned char* data, int length, const char* path, IMAGE_FORMAT& format) {
    const std::span stream(data, static_cast<std::size_t>(length));
    format = formatOf(stream);
    if (format != notRecognised) {
        (void)saveFileData(path, data, length);  // a file that is missing or short is reported by the printing
        return 0;
    }
    const std::unique_ptr<unsigned char[]> decoded(new (std::nothrow) unsigned char[stream.size() / 4 * 3 + 4]);
    if (decoded == nullptr)
        return noMemory;
    int decodedLength = 0;
    if (base64_decode(data, length, decoded.get(), &decodedLength) != 0)
        return notAnImage;
    format = formatOf({decoded.get(), static_cast<std::size_t>(decodedLength)});
    (void)saveFileData(path, decoded.get(), decodedLength);  // as above
    return 0;
}

}  // namespace

int printImageFile_OKI(const char* path, const ImagePlace& place) {
    IMAGE_FORMAT format = notRecognised;
    if (identifyFileFormat(path, &format) != 0)
        return notAnImage;
    ImageJob job;
    job.bmp.takeName();
    return job.print(path, format, place, false);
}

int printImageStream_OKI(const unsigned char* data, int length, const ImagePlace& place, bool pausesTwice) {
    if (length < 1)
        return notAnImage;
    ImageJob job;
    job.raw.takeName();
    IMAGE_FORMAT format = notRecognised;
    if (const int result = saveStream(data, length, job.raw.name, format); result != 0)
        return result;
    pauseSeconds(1);
    if (format == formatJpeg || format == formatPng)
        job.bmp.takeName();
    return job.print(job.raw.name, format, place, pausesTwice);
}

}  // namespace passbook
