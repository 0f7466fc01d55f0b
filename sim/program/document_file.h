// Pictures in files as documents for the scanner.
#pragma once

#include <string>

#include "sim/document.h"

namespace passbook::sim {

/// The picture in a PNG, JPEG or BMP file, with white behind what is transparent. Empty when it cannot be read; `error`
/// then says why.
[[nodiscard]] Document documentFromFile(const std::string& path, std::string& error);

}  // namespace passbook::sim
