// The results that the modules hand up, by name. The host sees the same numbers: api/ holds them against passbook.h.
#pragma once

namespace passbook {

enum Result : int {
    success = 0,
    badArgument = -1,      ///< nothing was sent
    notSent = -3,          ///< a command or its data was not sent whole
    noAnswer = -4,         ///< an answer did not come, or is malformed
    noFile = -11,          ///< a BMP cannot be opened
    shortFile = -12,       ///< a BMP's header or a row is short, or its depth is none that is printed
    missingRows = -13,     ///< a BMP has fewer rows than it promises, or promises what cannot be
    paperUnknown = -20,    ///< the paper status was not answered, or not recognisably
    noPaperSize = -21,     ///< the printer did not tell the document's size
    printerUnknown = -22,  ///< the printer status was not answered, or not recognisably
    notReady = -30,        ///< the printer was not ready in time
    noMemory = -31,        ///< no memory; of a scan, no temporary file either
    imageBrokenOff = -40,  ///< a scan's image did not come whole
    notAnImage = -6,       ///< OKI images: no such file, or no image
    cancelled = -100,      ///< the host has ended the call
    scanNotReady = 2,      ///< OLI scans: the printer was not ready, or the image has another number of rows
};

}  // namespace passbook
