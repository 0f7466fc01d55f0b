#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "sim/history.h"
#include "sim/printer.h"
#include "sim/usb/usb_port.h"

namespace passbook::sim {

/// What the program was told on its command line.
struct Options {
    Scenario scenario;
    std::string pageFile;    // empty: no picture is kept
    std::string pageFolder;  // empty: none
    std::string control;     // the socket; empty: none
    int baud = 0;            // 0: as fast as it goes
    std::size_t buffer = 1024;
    std::string eventFile;  // empty: no log; may be standardOutput
    std::string link;       // to the port; empty: none
    std::string trace;      // to replay; empty: hosts are served
    bool familyGiven = false;
    std::vector<Expectation> expectations;  // their pictures are not read yet
    /// Pictures of the document's sides for the scanner, not read yet; empty: none.
    std::array<std::string, 2> scanFiles;

    bool usb = false;  // on an emulated USB bus
    bool runsHost = false;
    std::vector<std::string> host;  // with its arguments
    UsbDevice device;
};

inline constexpr const char* standardOutput = "-";

inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 2;

/// The options, or the status to leave with: help and version have been printed, or what is wrong.
struct ParsedOptions {
    std::optional<Options> options;
    int exitStatus = 0;
};

[[nodiscard]] ParsedOptions parseOptions(int argc, const char* const* argv);

}  // namespace passbook::sim
