// A page as its description tells: which steps make it, in their order. Everything is checked before a step is sent.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "json/fields.h"
#include "json/located_json.h"
#include "tools/family.h"
#include "tools/picture.h"
#include "tools/text_extent.h"

namespace passbook::tool {

/// The steps of a page. Places are in millimetres from the upper left corner of the page.
namespace step {

/// OLI. `reset`: see enum passbook_reset.
struct Initialise {
    int reset = 0;
    int waitSeconds = 0;
};
/// OLI. Draws the document in, and waits for it.
struct Insert {
    int waitSeconds = 0;
};
/// OLI.
struct Format {
    TextFormat format;
};
struct LineSpace {
    double millimetres = 0;
};
struct Underline {
    int mode = 0;  // see enum passbook_underline
};
struct Text {
    double xMm = 0, yMm = 0;
    std::string utf8;
};
struct Image {
    double xMm = 0, yMm = 0;
    std::string path;
    Picture picture;
};
/// OLI.
struct Stripe {
    int track = 0;
    std::string data;
};
/// OLI waits until the document is taken when `waitSeconds` is above 0.
struct Eject {
    int waitSeconds = 0;
};

}  // namespace step

struct Step {
    std::variant<step::Initialise, step::Insert, step::Format, step::LineSpace, step::Underline, step::Text,
                 step::Image, step::Stripe, step::Eject>
        what;
    std::string name;     // for people: "text \"DEPOSIT\" at 20.0, 35.5 mm"
    std::string where{};  // in the description: "page.json:12: /steps/3"

    template <typename Kind>
    [[nodiscard]] const Kind* as() const {
        return std::get_if<Kind>(&what);
    }
    /// Whether it leaves ink: sent twice, it is printed twice.
    [[nodiscard]] bool leavesInk() const { return as<step::Text>() != nullptr || as<step::Image>() != nullptr; }
};

struct Description {
    Family family = Family::oli;
    std::vector<Step> steps;  // in the order in which they are sent; people count them from 1
    std::string digest;       // SHA-256 of the text, the pictures and all that decides what is sent

    /// Reads a description of a page. `fileName` is for messages; pictures are looked for from the folder of it.
    /// `family` is what the user has asked for; a description can say it too, and then the two must agree. Without a
    /// value `problems` tells what is wrong, one line each, with line and path.
    [[nodiscard]] static std::optional<Description> read(std::string_view text, const std::string& fileName,
                                                         std::optional<Family> family, double offsetXMm,
                                                         double offsetYMm, std::vector<std::string>& problems);
};

}  // namespace passbook::tool
