// A virtual printer in this process, on a port of its own: what `preview` prints on.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/family.h"
#include "tools/text_extent.h"

namespace passbook::tool {

struct PrintedText {
    std::string text;  // UTF-8
    Box box{};         // of its characters' cells, without spaces at its ends
};

/// A document and what is on it.
struct Sheet {
    int width = 0, height = 0;  // of the paper
    std::vector<PrintedText> texts{};
    int pictureRight = 0;             // pictures have no ink from this column on
    std::vector<bool> pictureRows{};  // those with ink of pictures, as far down as there is any
    bool blank = true;
    std::string png{};  // empty: no memory for it
};

/// The printer, with a document in place, whose user takes what is ejected and lays in the next document. A thread of
/// its own serves the port while this object lives.
class VirtualDesk {
 public:
    VirtualDesk(Family family, double widthMm, double heightMm);
    VirtualDesk(const VirtualDesk&) = delete;
    VirtualDesk& operator=(const VirtualDesk&) = delete;
    ~VirtualDesk();

    /// For YARDO_PR2_OpenPort: "pts/4". Empty if the system has no pseudo-terminal; problem() says why.
    [[nodiscard]] const std::string& port() const;
    [[nodiscard]] const std::string& problem() const;

    struct Result {
        std::vector<Sheet> sheets;          // one or more; the last can be blank
        std::vector<std::string> mistakes;  // of the host: what the printer did not understand or could not print
    };
    /// Takes in what was sent until now, and ends the service.
    [[nodiscard]] Result close();

    /// Whether one is serving. Pauses that give a real printer time are of no use then: see pause.cpp.
    [[nodiscard]] static bool isServing();

 private:
    class Running;
    std::unique_ptr<Running> running_;
};

/// The characters of a text that no font of this computer has: the virtual printer shows boxes in their place.
[[nodiscard]] std::string withoutFont(const std::string& text);

}  // namespace passbook::tool
