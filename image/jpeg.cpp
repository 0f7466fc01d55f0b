// JPEG to BMP and back through libjpeg (the 6.2 interface of libjpeg-turbo).

#include <algorithm>
#include <climits>
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

// libjpeg's headers want stdio.h before them. The numbers of its messages depend on how it was built, which only the
// first of the two tells.
#include <jpeglib.h>

#include <jerror.h>

#include "image/bmp.h"
#include "image/convert.h"
#include "image/file.h"
#include "image/grey_levels.h"
#include "image/handles.h"

namespace passbook {

namespace {

constexpr JDIMENSION maxSide = 32767;

/// Catches libjpeg's errors, which by its own manager would end the process, and makes damage that it would
/// only warn of an error as well: it fills what is missing in with grey, and money may be written there.
struct ErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf back;

    jpeg_error_mgr* install() {
        jpeg_std_error(&base);
        base.error_exit = [](j_common_ptr codec) {
            std::longjmp(reinterpret_cast<ErrorManager*>(codec->err)->back, 1);
        };
        base.emit_message = [](j_common_ptr codec, int level) {
            if (level < 0 && isDamage(codec->err->msg_code))
                codec->err->error_exit(codec);
        };
        base.output_message = [](j_common_ptr) {};
        return &base;
    }

    /// Warnings that tell of lost pixels. The others do not: phones order their scans in ways of their own, cameras put
    /// padding before a marker, and any viewer shows such pictures whole.
    [[nodiscard]] static bool isDamage(int message) {
        return message == JWRN_JPEG_EOF || message == JWRN_HUFF_BAD_CODE || message == JWRN_ARITH_BAD_CODE ||
               message == JWRN_HIT_MARKER || message == JWRN_MUST_RESYNC;
    }
};
static_assert(offsetof(ErrorManager, base) == 0, "libjpeg hands the base back for the whole");

/// All that a conversion to BMP holds. It lives outside of the function that libjpeg's errors jump back into,
/// so that whatever was acquired by then is released by its owner.
struct JpegDecoding {
    jpeg_decompress_struct codec{};
    ErrorManager errors{};
    FileHandle source;
    TempBmp destination;

    JpegDecoding() = default;
    JpegDecoding(const JpegDecoding&) = delete;
    JpegDecoding& operator=(const JpegDecoding&) = delete;
    ~JpegDecoding() { jpeg_destroy_decompress(&codec); }

    int run(const char* destinationPath);
};

int JpegDecoding::run(const char* destinationPath) {
    codec.err = errors.install();
    // Nothing with a destructor may live in this function or below it: an error jumps over it.
    if (setjmp(errors.back) != 0)
        return -2;
    jpeg_create_decompress(&codec);
    // A progressive picture is held as coefficients, 128 bytes for a block of 64, and each block takes a bit of the file at
    // least. One that would take more memory is not whole, and is refused before it takes gigabytes.
    constexpr long enoughForAny = 64 << 20, perByte = 8 * 128;
    codec.mem->max_memory_to_use =
        enoughForAny + perByte * std::min(sizeOf(source), (LONG_MAX - enoughForAny) / perByte);
    jpeg_stdio_src(&codec, source.get());
    (void)jpeg_read_header(&codec, TRUE);
    if (codec.image_width > maxSide || codec.image_height > maxSide)
        return -2;
    if (codec.num_components == 3)
        codec.out_color_space = JCS_EXT_BGR;
    else if (codec.num_components != 1)
        return -2;
    jpeg_calc_output_dimensions(&codec);
    const auto width = static_cast<int>(codec.output_width);
    const auto height = static_cast<int>(codec.output_height);
    if (!destination.create(destinationPath, width, height, 8 * codec.output_components))
        return -2;
    (void)jpeg_start_decompress(&codec);
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, 8 * codec.output_components));
    // libjpeg-turbo writes to rows that are aligned for it past the cache, and here they are read at once.
    constexpr std::size_t offAlignment = 16;
    JSAMPARRAY rows = (*codec.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&codec), JPOOL_PERMANENT,
                                                 static_cast<JDIMENSION>(stride + offAlignment), 1);
    JSAMPROW row = *rows + offAlignment;
    std::fill(row, row + stride, JSAMPLE{0});
    while (codec.output_scanline < codec.output_height) {
        (void)jpeg_read_scanlines(&codec, &row, 1);
        if (codec.output_scanline == codec.output_height)
            (void)jpeg_finish_decompress(&codec);
        // Damage behind the last row is found as a full disk is, for that row is written when all is well.
        (void)std::fwrite(row, 1, stride, destination.get());
    }
    return 0;
}

/// The same for a conversion from BMP.
struct JpegEncoding {
    jpeg_compress_struct codec{};
    ErrorManager errors{};
    FileHandle source;
    OutputFile destination;
    GreyLevels levels;
    std::unique_ptr<unsigned char[]> stored;  // a row as it stands in the file
    std::unique_ptr<unsigned char[]> grey;    // the same, expanded

    JpegEncoding() = default;
    JpegEncoding(const JpegEncoding&) = delete;
    JpegEncoding& operator=(const JpegEncoding&) = delete;
    ~JpegEncoding() { jpeg_destroy_compress(&codec); }

    int run(int width, int height, int bitsPerPixel, int quality);
};

int JpegEncoding::run(int width, int height, int bitsPerPixel, int quality) {
    codec.err = errors.install();
    // Nothing with a destructor may live in this function or below it: an error jumps over it.
    if (setjmp(errors.back) != 0)
        return -2;
    jpeg_create_compress(&codec);
    codec.image_width = static_cast<JDIMENSION>(width);
    codec.image_height = static_cast<JDIMENSION>(height);
    codec.input_components = bitsPerPixel == 24 ? 3 : bitsPerPixel == 32 ? 4 : 1;
    codec.in_color_space = bitsPerPixel == 24 ? JCS_EXT_BGR : bitsPerPixel == 32 ? JCS_EXT_BGRX : JCS_GRAYSCALE;
    jpeg_stdio_dest(&codec, destination.get());
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, quality, TRUE);
    jpeg_start_compress(&codec, TRUE);
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, bitsPerPixel));
    while (codec.next_scanline < codec.image_height) {
        if (std::fread(stored.get(), 1, stride, source.get()) != stride)
            return -2;
        if (bitsPerPixel < 8)
            levels.expandRow(stored.get(), grey.get(), width);
        JSAMPROW row = bitsPerPixel < 8 ? grey.get() : stored.get();
        (void)jpeg_write_scanlines(&codec, &row, 1);
    }
    jpeg_finish_compress(&codec);
    return 0;
}

/// convertBMPtoJPG; `keepEmpty`: a file that was created before the source turned out not to open stays, empty.
int encode(const char* source, const char* destination, int quality, bool keepEmpty) {
    int width = 0;
    int height = 0;
    int dataOffset = 0;
    int bits = 0;
    // A file that is missing or short is found below, once the destination stands; one that has a header has
    // a depth.
    const bool headed = getBitmapInfo(source, &width, &height, &dataOffset, &bits) == 0;
    if (headed && bits != 1 && bits != 4 && bits != 8 && bits != 24 && bits != 32)
        return -2;

    JpegEncoding encoding;
    if (!encoding.destination.create(destination)) {
        (void)std::fprintf(stderr, "can't open %s.\n", destination);
        return -2;
    }
    encoding.source = openForReading(source);
    if (encoding.source == nullptr) {
        (void)std::fprintf(stderr, "can`t open %s.\n", source);
        if (keepEmpty)
            (void)encoding.destination.commit();
        return -2;
    }
    bufferLargely(encoding.source);
    encoding.destination.bufferLargely();
    // What the encoder can hold, and a row at a time of it.
    if (!headed || width < 1 || width > JPEG_MAX_DIMENSION || height < -JPEG_MAX_DIMENSION ||
        height > JPEG_MAX_DIMENSION || dataOffset < 0)
        return -2;
    if (bits < 8 && encoding.levels.load(encoding.source.get(), dataOffset, bits) != 0)
        return -2;
    encoding.stored.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(bmpStrideBytes(width, bits))]);
    encoding.grey.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(width)]);
    if (encoding.stored == nullptr || encoding.grey == nullptr ||
        std::fseek(encoding.source.get(), dataOffset, SEEK_SET) != 0)
        return -2;
    if (const int result = encoding.run(width, std::abs(height), bits, quality); result != 0)
        return result;
    return encoding.destination.commit() ? 0 : -2;
}

}  // namespace

int convertJPGtoBMP(const char* source, const char* destination) {
    JpegDecoding decoding;
    decoding.source = openForReading(source);
    if (decoding.source == nullptr)
        return -2;
    bufferLargely(decoding.source);
    return decoding.run(destination);
}

int convertBMPtoJPG(const char* source, const char* destination, int quality) {
    return encode(source, destination, quality, true);
}

int saveAsJPG(const char* bmp, const char* destination, int quality) {
    return encode(bmp, destination, quality, false);
}

}  // namespace passbook
