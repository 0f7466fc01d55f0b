// The passbook's magnetic stripe, on the OLI family.
#pragma once

namespace passbook {

/// Reads the stripe that `track` selects: 0 the first select command, anything else the second.
/// `buffer` of `length` bytes, at least 2; it holds the reply's two header bytes on the way, so that at most
/// length - 2 bytes of data come back, followed by a zero. What lies behind that zero is left over from the
/// reply. 0; -1 no buffer or a shorter one, nothing sent; -3 the read command was not sent whole; -4 no
/// complete reply within 15 polls of a second each (what arrived is then in the buffer as it came).
[[nodiscard]] int ReadStripe(int track, char* buffer, int length);

/// Writes `length` bytes to the stripe that `track` selects. 0 when the write command was sent (whether the
/// stripe was written is not known from it: read it back); -1 no data or a negative length, nothing sent; -3.
[[nodiscard]] int WriteStripe(int track, const char* data, int length);

}  // namespace passbook
