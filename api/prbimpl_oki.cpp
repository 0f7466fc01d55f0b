// The exported functions of the OKI family. Each call opens the port, does its job and closes the port again.

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <new>
#include <span>

#include "api/codeset.h"
#include "api/passbook.h"
#include "api/units.h"
#include "device/device.h"
#include "image/convert.h"
#include "image/file.h"
#include "print/print_oki.h"

using namespace passbook;

namespace {

constexpr int badArgument = -1;
constexpr int portNotOpened = -3;
constexpr int notAnImage = -6;
constexpr int noMemory = -31;

/// Where on the document, in whole millimetres: fractions are cut off before the dots are worked out.
struct Millimetres {
    int x, y;

    /// `x` in tenths of a millimetre; `y` too or, with mode 1, in units of 0.165 mm.
    static Millimetres from(int mode, int x, int y) {
        return {static_cast<int>(x * 0.1), static_cast<int>(y * (mode == 1 ? 0.165 : 0.1))};
    }
    [[nodiscard]] int xDots() const { return dotsFromMillimetres(x); }
    [[nodiscard]] int yDots() const { return dotsFromMillimetres(y); }
};

/// The port for the length of a call, whoever opened it: a port that was open before is closed as well.
class PortOfCall {
 public:
    explicit PortOfCall(const char* portName) : open_(PRSinit(portName) == 0) {}
    PortOfCall(const PortOfCall&) = delete;
    PortOfCall& operator=(const PortOfCall&) = delete;
    ~PortOfCall() {
        if (open_)
            (void)PRSexit();  // the job's result is the one that counts
    }
    [[nodiscard]] bool isOpen() const { return open_; }

 private:
    bool open_;
};

/// A temporary file's name, empty until one is needed.
struct TemporaryFile {
    char name[tempNameBytes] = "";

    void takeName() { takeTempFileName(name, TMP_PATH); }
    void remove() const {
        if (name[0] != '\0')
            (void)std::remove(
                name);  // there may be none: not every step that took a name got as far as a file
    }
};

bool badPosition(const char* portName, int timeout, int x, int y, const void* content) {
    return portName == nullptr || timeout < 0 || x < 0 || y < 0 || content == nullptr;
}

bool badTurns(int turns) {
    return turns < 0 || turns > 3;
}

/// What the four image functions have in common once the image is a file of a known format: convert it if it
/// is no BMP, turn it, print it. Conversions and turns that fail leave a file missing or short, which the
/// printing reports.
class ImageJob {
 public:
    ImageJob(int mode, int x, int y, int turns) : place_(Millimetres::from(mode, x, y)), turns_(turns) {}
    ImageJob(const ImageJob&) = delete;
    ImageJob& operator=(const ImageJob&) = delete;
    ~ImageJob() {
        for (const TemporaryFile* file : {&raw, &bmp, &turned})
            file->remove();
    }

    TemporaryFile raw, bmp, turned;
    bool pauseBeforeTurning = false;

    [[nodiscard]] int print(const char* image, IMAGE_FORMAT format) {
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
        if (pauseBeforeTurning)
            pauseSeconds(1);
        if (turns_ != 0) {
            turned.takeName();
            (void)rorateImage(image, turned.name, turns_ * 90);
            image = turned.name;
        }
        return PrintBmp_OKI(image, false, true, place_.xDots(), place_.yDots());
    }

 private:
    Millimetres place_;
    int turns_;
};

int printImageFile(const char* portName, int mode, int timeout, int x, int y, const char* path, int turns) {
    if (badPosition(portName, timeout, x, y, path) || badTurns(turns))
        return badArgument;
    g_timeout = timeout;
    const PortOfCall port(portName);
    if (!port.isOpen())
        return portNotOpened;
    IMAGE_FORMAT format = notRecognised;
    if (identifyFileFormat(path, &format) != 0)
        return notAnImage;
    ImageJob job(mode, x, y, turns);
    job.bmp.takeName();
    return job.print(path, format);
}

IMAGE_FORMAT formatOf(std::span<const unsigned char> data) {
    std::array<unsigned char, 8> header{};
    std::copy_n(data.begin(), std::min(data.size(), header.size()), header.begin());
    return identifyHeaderFormat(header.data());
}

/// Puts the image that a stream holds, as it is or as base64 text, into the job's raw file. 0, or the call's
/// result.
int saveStream(const unsigned char* data, int length, const char* path, IMAGE_FORMAT& format) {
    const std::span stream(data, static_cast<std::size_t>(length));
    format = formatOf(stream);
    if (format != notRecognised) {
        (void)saveFileData(path, data,
                           length);  // a file that is missing or short is reported by the printing
        return 0;
    }
    const std::unique_ptr<unsigned char[]> decoded(
        new (std::nothrow) unsigned char[stream.size() / 4 * 3 + 4]);
    if (decoded == nullptr)
        return noMemory;
    int decodedLength = 0;
    if (base64_decode(data, length, decoded.get(), &decodedLength) != 0)
        return notAnImage;
    format = formatOf({decoded.get(), static_cast<std::size_t>(decodedLength)});
    (void)saveFileData(path, decoded.get(), decodedLength);  // as above
    return 0;
}

int printImageStream(const char* portName, int mode, int timeout, int x, int y, const unsigned char* data,
                     int length, int turns, bool turning) {
    if (badPosition(portName, timeout, x, y, data) || badTurns(turns))
        return badArgument;
    g_timeout = timeout;
    const PortOfCall port(portName);
    if (!port.isOpen())
        return portNotOpened;
    if (length < 1)
        return notAnImage;
    ImageJob job(mode, x, y, turns);
    job.pauseBeforeTurning = turning;
    job.raw.takeName();
    IMAGE_FORMAT format = notRecognised;
    if (const int result = saveStream(data, length, job.raw.name, format); result != 0)
        return result;
    pauseSeconds(1);
    if (format == formatJpeg || format == formatPng)
        job.bmp.takeName();
    return job.print(job.raw.name, format);
}

/// Prints converted text, or says why not.
int printText(const char* text, int length, Millimetres place) {
    int convertedLength = 0;
    const ConvertedText converted(convertCodeset(text, length, gb2312Code, utf8Code, &convertedLength));
    if (converted == nullptr)
        return badArgument;
    return PrintLineData_OKI(reinterpret_cast<unsigned char*>(converted.get()), convertedLength,
                             place.xDots(), place.yDots());
}

}  // namespace

int PT_PrintImageFile(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/,
                      const char* path) {
    return printImageFile(portName, mode, timeout, x, y, path, 0);
}

int PT_PrintImageFileRevolve(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/,
                             const char* path, int turns) {
    return printImageFile(portName, mode, timeout, x, y, path, turns);
}

int PT_PrintImageStream(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/,
                        const unsigned char* data, int length) {
    return printImageStream(portName, mode, timeout, x, y, data, length, 0, false);
}

int PT_PrintImageStreamRevolve(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/,
                               const unsigned char* data, int length, int turns) {
    return printImageStream(portName, mode, timeout, x, y, data, length, turns, true);
}

int PT_Eject(const char* portName, int /*reserved*/) {
    if (portName == nullptr)
        return badArgument;
    const PortOfCall port(portName);
    return port.isOpen() ? EjectPaper_OKI() : portNotOpened;
}

int PT_PrintTxtFile(const char* portName, int mode, int timeout, int x, int y, const char* path) {
    if (badPosition(portName, timeout, x, y, path))
        return badArgument;
    g_timeout = timeout;
    const PortOfCall port(portName);
    if (!port.isOpen())
        return portNotOpened;
    unsigned char* content = nullptr;
    int length = 0;
    if (getFileData(path, &content, &length, longestTextBytes) != 0)
        return badArgument;
    const int result =
        printText(reinterpret_cast<const char*>(content), length, Millimetres::from(mode, x, y));
    freeFileData(content);
    return result;
}

int PT_PrintTxtStream(const char* portName, int mode, int timeout, int x, int y, const char* text,
                      int length) {
    if (badPosition(portName, timeout, x, y, text))
        return badArgument;
    g_timeout = timeout;
    const PortOfCall port(portName);
    if (!port.isOpen())
        return portNotOpened;
    return printText(text, length, Millimetres::from(mode, x, y));
}
