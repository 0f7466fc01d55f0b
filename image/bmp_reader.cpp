#include "image/bmp_reader.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>

#include "base/results.h"
#include "image/bmp_header.h"
#include "image/file.h"

namespace passbook {

int BmpReader::open(const char* path) {
    file_ = openForReading(path);
    if (file_ == nullptr)
        return noFile;
    // Pieces are large already: what stands between them and the system would only copy them once more.
    (void)std::setvbuf(file_.get(), nullptr, _IONBF, 0);
    return success;
}

int BmpReader::readGeometry() {
    BmpHeader header;
    if (!header.read(file_.get()))
        return shortFile;
    geometry = header.geometry();
    return success;
}

int BmpReader::start(bool expand) {
    const auto& [width, storedHeight, dataOffset, bitsPerPixel] = geometry;
    if (width < 1 || storedHeight == std::numeric_limits<int>::min() || dataOffset < 0)
        return missingRows;
    // Also what keeps the callers from running over billions of rows of no bytes.
    if (bitsPerPixel < 8 && bitsPerPixel != 1 && bitsPerPixel != 4)
        return shortFile;
    const std::int64_t size = bmpImageBytes(width, geometry.rows(), bitsPerPixel);
    if (size < 0)
        return missingRows;
    if (std::fseek(file_.get(), 0, SEEK_END) != 0)
        return missingRows;  // a pipe or a terminal: nothing that holds rows at an offset
    const long length = std::ftell(file_.get());
    if (length < dataOffset || length - dataOffset < size)
        return missingRows;

    const bool grey = expand && bitsPerPixel < 8;
    if (grey) {
        if (const int result = levels_.load(file_.get(), dataOffset, bitsPerPixel); result != 0)
            return result;
        if (bmpImageBytes(width, geometry.rows(), 8) < 0)
            return missingRows;
    }
    rowsLeft_ = geometry.rows();
    stride_ = bmpStrideBytes(width, bitsPerPixel);
    if (grey)
        geometry.bitsPerPixel = 8;
    // Without rows nothing holds the width against the file: a few bytes would take gigabytes of memory.
    if (rowsLeft_ == 0)
        return success;
    if (grey) {
        grey_.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(bmpStrideBytes(width, 8))]());
        if (grey_ == nullptr)
            return noMemory;
    }
    if (std::fseek(file_.get(), dataOffset, SEEK_SET) != 0)
        return missingRows;
    piecesRows_ = static_cast<int>(std::max<std::int64_t>(1, std::int64_t{largeBufferBytes} / stride_));
    piece_.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(piecesRows_ * stride_)]);
    return piece_ != nullptr ? success : noMemory;
}

const unsigned char* BmpReader::next() {
    if (rowsHere_ == 0) {
        const int wanted = std::min(piecesRows_, rowsLeft_);
        const std::size_t read = std::fread(piece_.get(), 1, static_cast<std::size_t>(wanted * stride_), file_.get());
        const auto here = static_cast<int>(static_cast<std::int64_t>(read) / stride_);
        if (here == 0)
            return nullptr;
        // A file that was cut meanwhile has ended, even if it grows again: its rows would begin elsewhere.
        rowsLeft_ = here == wanted ? rowsLeft_ - here : 0;
        rowsHere_ = here;
        nextRow_ = piece_.get();
    }
    const unsigned char* const row = nextRow_;
    nextRow_ += stride_;
    --rowsHere_;
    if (grey_ == nullptr)
        return row;
    levels_.expandRow(row, grey_.get(), geometry.width);
    return grey_.get();
}

bool BmpReader::readAll(unsigned char* rows) {
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(geometry.width, geometry.bitsPerPixel));
    for (int stored = 0; stored < geometry.rows(); ++stored) {
        const unsigned char* const row = next();
        if (row == nullptr)
            return false;
        std::copy_n(row, stride, rows + static_cast<std::size_t>(geometry.fromTop(stored)) * stride);
    }
    return true;
}

int BmpReader::openExpanded(const char* path) {
    int result = open(path);
    if (result == 0)
        result = readGeometry();
    return result != 0 ? result : start(true);
}

}  // namespace passbook
