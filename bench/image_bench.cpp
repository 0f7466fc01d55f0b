// The way of a picture from a file to the print head's columns.

#include <benchmark/benchmark.h>
#include <png.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>
// libjpeg's header wants stdio.h before it.
#include <jpeglib.h>

#include "bench/bench.h"
#include "image/bmp.h"
#include "image/convert.h"
#include "image/handles.h"
#include "print/raster.h"

namespace passbook::bench {

namespace {

// An A4 page at 600 dots per inch.
constexpr int pageWidth = 4960;
constexpr int pageHeight = 7016;

/// A scanned page: paper that is not quite white, and lines of something like text.
std::vector<unsigned char> scannedRow(int y, std::mt19937& random) {
    std::vector<unsigned char> row(std::size_t{pageWidth} * 3);
    const bool line = y % 120 < 60;
    for (std::size_t x = 0; x < pageWidth; ++x) {
        const bool ink =
            line && x > 400 && x < 4500 && (x / 9 * 2654435761U + static_cast<unsigned>(y / 9) * 40503U) % 7 < 3;
        const auto noise = static_cast<unsigned char>(random() % 8);
        for (std::size_t i = 0; i < 3; ++i)
            row[3 * x + i] = static_cast<unsigned char>((ink ? 20 : 240) + noise);
    }
    return row;
}

void writePng(const std::string& path) {
    const FileHandle file(std::fopen(path.c_str(), "wb"));
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file.get());
    png_set_IHDR(png, info, pageWidth, pageHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 2);
    png_write_info(png, info);
    std::mt19937 random(1);
    for (int y = 0; y < pageHeight; ++y)
        png_write_row(png, scannedRow(y, random).data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
}

void decodePng(const std::string& path) {
    const FileHandle file(std::fopen(path.c_str(), "rb"));
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file.get());
    png_read_info(png, info);
    std::vector<unsigned char> row(png_get_rowbytes(png, info));
    for (png_uint_32 y = png_get_image_height(png, info); y > 0; --y)
        png_read_row(png, row.data(), nullptr);
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
}

void decodeJpeg(const std::string& path) {
    const FileHandle file(std::fopen(path.c_str(), "rb"));
    jpeg_decompress_struct codec{};
    jpeg_error_mgr errors{};
    codec.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&codec);
    jpeg_stdio_src(&codec, file.get());
    (void)jpeg_read_header(&codec, TRUE);
    (void)jpeg_start_decompress(&codec);
    std::vector<unsigned char> row(std::size_t{codec.output_width} * 3);
    JSAMPROW pointer = row.data();
    while (codec.output_scanline < codec.output_height)
        (void)jpeg_read_scanlines(&codec, &pointer, 1);
    (void)jpeg_finish_decompress(&codec);
    jpeg_destroy_decompress(&codec);
}

/// The page's pixels for the in-memory steps.
const std::vector<unsigned char>& page() {
    static const std::vector<unsigned char> pixels = [] {
        std::vector<unsigned char> all;
        std::mt19937 random(1);
        for (int y = 0; y < pageHeight; ++y) {
            const auto row = scannedRow(y, random);
            all.insert(all.end(), row.begin(), row.end());
        }
        return all;
    }();
    return pixels;
}

void binarise(benchmark::State& state, bool byPixel) {
    std::vector<unsigned char> data;
    for (auto _ : state) {
        state.PauseTiming();
        data = page();
        state.ResumeTiming();
        if (!byPixel) {
            BinaryImage(pageWidth, pageHeight, 24, data.data(), inkThreshold);
            continue;
        }
        const std::size_t stride = oneBitStrideBytes(pageWidth);
        for (std::size_t y = 0; y < pageHeight; ++y) {
            for (std::size_t x = 0; x < pageWidth; ++x) {
                const unsigned char* pixel = &data[(y * pageWidth + x) * 3];
                unsigned char& byte = data[y * stride + x / 8];
                const auto mask = static_cast<unsigned char>(0x80 >> (x % 8));
                if ((pixel[0] + pixel[1] + pixel[2]) / 3 < inkThreshold)
                    byte = static_cast<unsigned char>(byte | mask);
                else
                    byte = static_cast<unsigned char>(byte & ~mask);
            }
        }
    }
}

void pack(benchmark::State& state, bool byPixel) {
    std::vector<unsigned char> image = page();
    BinaryImage(pageWidth, pageHeight, 24, image.data(), inkThreshold);
    std::vector<unsigned char> columns(std::size_t{pageWidth} * columnBytes);
    const std::size_t stride = oneBitStrideBytes(pageWidth);
    for (auto _ : state) {
        for (int row = 0; row < pageHeight; row += stripRows) {
            const unsigned char* strip = image.data() + static_cast<std::size_t>(row) * stride;
            if (!byPixel) {
                AdjustDataOrder(pageWidth, pageHeight - row, strip, columns.data());
                continue;
            }
            std::fill(columns.begin(), columns.end(), static_cast<unsigned char>(0));
            for (std::size_t x = 0; x < pageWidth; ++x) {
                for (std::size_t k = 0; k < stripRows && row + static_cast<int>(k) < pageHeight; ++k)
                    if ((strip[k * stride + x / 8] >> (7 - x % 8) & 1) != 0)
                        columns[3 * x + k / 8] = static_cast<unsigned char>(columns[3 * x + k / 8] | 0x80 >> (k % 8));
            }
        }
        benchmark::ClobberMemory();
    }
}

template <typename Function>
void add(const char* name, Function function) {
    benchmark::RegisterBenchmark(
        name,
        [function](benchmark::State& state) {
            for (auto _ : state)
                function();
        })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
}

}  // namespace

void registerImageBenchmarks(const std::string& directory) {
    const std::string png = directory + "/page.png", jpeg = directory + "/page.jpg", bmp = directory + "/page.bmp",
                      turned = directory + "/turned.bmp", source = directory + "/source.bmp";
    writePng(png);
    (void)convertPNGtoBMP(png.c_str(), source.c_str());
    if (convertBMPtoJPG(source.c_str(), jpeg.c_str(), 85) != 0)
        std::perror(directory.c_str());

    add(
        "PNG to BMP, against decoding it/of", [=] { (void)convertPNGtoBMP(png.c_str(), bmp.c_str()); });
    add(
        "PNG to BMP, against decoding it/against", [=] { decodePng(png); });
    add(
        "JPEG to BMP, against decoding it/of", [=] { (void)convertJPGtoBMP(jpeg.c_str(), bmp.c_str()); });
    add(
        "JPEG to BMP, against decoding it/against", [=] { decodeJpeg(jpeg); });
    add(
        "turn by 90, against by 180/of", [=] { (void)rorateImage(source.c_str(), turned.c_str(), 90); });
    add("turn by 90, against by 180/against", [=] { (void)rorateImage(source.c_str(), turned.c_str(), 180); });
    const auto addPair = [](const std::string& name, void (*function)(benchmark::State&, bool)) {
        benchmark::RegisterBenchmark((name + "/of").c_str(), function, false)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((name + "/against").c_str(), function, true)->Unit(benchmark::kMillisecond);
    };
    addPair("binarise, against pixel by pixel", binarise);
    addPair("pack strips, against pixel by pixel", pack);
}

}  // namespace passbook::bench
