// The commands of the OKI family, each once. Beside each stands what goes over the wire. Zero bytes at the end are
// fields, which whoever sends the command fills in.
#pragma once

#include "command/bytes.h"

namespace passbook::oki {

// Movement, from where the paper and the head are
inline constexpr auto paperFeed = joined(esc("%5"), Bytes<1>{});  // 1B 25 35 n       1/120 inch
inline constexpr auto headMove = joined(esc("%3"), Bytes<2>{});   // 1B 25 33 nH nL   dots
inline constexpr auto runHead = joined(esc("%1"), Bytes<2>{});    // 1B 25 31 nH nL   so many columns follow
inline constexpr auto eject = joined(esc("%5"), Bytes<1>{0x10}, carriageReturn, formFeed);  // 1B 25 35 10 0D 0C

// Settings around a job
inline constexpr auto initialSetting = joined(esc("}Sl"), Bytes<1>{0x08});        // 1B 7D 53 6C 08
inline constexpr auto secondInitialSetting = joined(esc("}SF"), Bytes<1>{0x10});  // 1B 7D 53 46 10
inline constexpr auto finalSetting = joined(esc("}SF"), Bytes<1>{0x20});          // 1B 7D 53 46 20
inline constexpr auto secondFinalSetting = joined(esc("}Sl"), Bytes<1>{0xFF});    // 1B 7D 53 6C FF

// Questions
inline constexpr auto paperStatus = esc("}SS");                                // 1B 7D 53 53
inline constexpr auto paperWidth = esc("}S-");                                 // 1B 7D 53 2D
inline constexpr auto paperLength = esc("}SL");                                // 1B 7D 53 4C
inline constexpr auto configurationRead = joined(esc("} a"), Bytes<1>{0x07});  // 1B 7D 20 61 07
inline constexpr auto configurationWrite = esc("} =");                         // 1B 7D 20 3D   the block follows
inline constexpr auto configurationEnd = esc("Z");                             // 1B 5A         in both

// Scanning
inline constexpr auto noOperation = Bytes<1>{0x00};
inline constexpr auto scanMode = esc("}SM");   // 1B 7D 53 4D   mode byte, colour byte
inline constexpr auto scanSides = esc("}SD");  // 1B 7D 53 44   side block
inline constexpr auto scanStart = esc("}D");   // 1B 7D 44

}  // namespace passbook::oki
