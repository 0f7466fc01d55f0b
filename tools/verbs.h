// The verbs of the tool. Each stands in a file of its own below verbs/.
#pragma once

namespace CLI {
class App;
}

namespace passbook::tool {

struct Tool;

/// Declares a verb with its options below `parent`. When the user asks for it, tool.job is set.
using AddVerb = void(CLI::App& parent, Tool& tool);

AddVerb addInit, addInsert, addEject, addStatus, addFirmware, addStripe, addRaw, addScan, addDoctor, addExplain,
    addDecode, addRun, addPreview;

/// Those that print; `preview` has them too.
AddVerb addText, addImage, addPage, addGrid;

}  // namespace passbook::tool
