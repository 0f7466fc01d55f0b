// The transport for a printer on a parallel port.
#pragma once

#include "device/device.h"

namespace passbook {

/// A parallel printer port. Which device it is is found by probing; the name that the host gave plays no
/// part. Reads wait without limit: a printer that never answers on this transport holds the caller.
class Parallel : public Protocol {
 public:
    /// Opens the first of the numbers 0 to 3 under /dev/parallel/ if that exists, else under /dev/printers,
    /// else /dev/lp0 to /dev/lp3. 0 or -1.
    [[nodiscard]] int OpenDevice() override;
    /// One read. 0 when at least one byte came, else -1.
    [[nodiscard]] int ReadPipe(unsigned char* buffer) override;
    /// One write. 0 when at least one byte was taken, else -1.
    [[nodiscard]] int WritePipe(const unsigned char* data) override;
    /// Always 0.
    [[nodiscard]] int CloseDevice() override;

 private:
    int fd = 0;  // the last result of open
};

}  // namespace passbook
