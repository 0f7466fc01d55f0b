// A BMP file as a stream of rows.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

#include "image/bmp.h"
#include "image/grey_levels.h"
#include "image/handles.h"

namespace passbook {

/// Reads a BMP file's rows one after the other, as the file holds them. Whatever the picture's size, no more than a
/// large buffer of it is in memory: touching memory for all pixels costs more time than reading them does.
class BmpReader {
 public:
    BmpGeometry geometry;

    /// 0; -11 the file cannot be opened.
    [[nodiscard]] int open(const char* path);
    /// Takes the geometry from the open file's header. 0; -12 the file is shorter than its headers.
    [[nodiscard]] int readGeometry();
    /// Holds the geometry against the file, before a row is read. With `expand`, rows of 1 and 4 bits a pixel come as
    /// 8-bit grey (see GreyLevels), and the geometry then tells so. 0, or a code of getBitmapData; with `expand` also
    /// -12 the colour table is short, -13 the grey picture would be beyond 31 bits.
    [[nodiscard]] int start(bool expand);
    /// The next row, of bmpStrideBytes() of the width and depth that the geometry tells; valid until the next call. Null
    /// when it cannot be read whole. To be called once for each row.
    [[nodiscard]] const unsigned char* next();

    /// All rows, top row first. False when they cannot be read whole.
    [[nodiscard]] bool readAll(unsigned char* rows);

    /// The first three of the above. 0, or the first code of them that is not.
    [[nodiscard]] int openExpanded(const char* path);

 private:
    FileHandle file_;
    std::unique_ptr<unsigned char[]> piece_;  // as many rows as fit into a large buffer, but one at least
    std::int64_t stride_ = 0;                 // bytes of a row in the file
    int piecesRows_ = 0;                      // rows that a piece has room for
    int rowsLeft_ = 0;                        // in the file, behind the piece
    int rowsHere_ = 0;                        // in the piece, that were not handed out yet
    const unsigned char* nextRow_ = nullptr;
    GreyLevels levels_;
    std::unique_ptr<unsigned char[]> grey_;  // the row that was handed out, expanded
};

}  // namespace passbook
