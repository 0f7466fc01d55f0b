// From grey or colour to ink or paper.
#pragma once

namespace passbook {

/// Thresholds a row: the bit of a pixel, the leftmost one in the highest, is 1 where its grey level is below `threshold`.
/// 24 and 32 bits a pixel compare the mean of blue, green and red; every other depth compares the byte at the pixel's
/// index, so it must be at least 8. Writes (width + 7) / 8 bytes; what is behind the last pixel in them is undefined.
/// No byte is written before the pixels from its own index on that it stands for were read: `bits` may be the start of
/// `pixels`.
void thresholdRow(const unsigned char* pixels, int bitsPerPixel, unsigned char* bits, int width, int threshold);

}  // namespace passbook
