#pragma once

#include <string>

#include "sim/page.h"

namespace passbook::sim {

// The PNG file a page is kept in. A reader never sees half of it: it is written under another name and then
// renamed.
class PageFile {
 public:
    explicit PageFile(std::string path) : path_(std::move(path)) {}

    // False if a file can't be made there; `error` then says why. What is there stays as it is.
    [[nodiscard]] bool canBeWritten(std::string& error) const;

    // Writes the page, unless it is blank and one that isn't has been written before: a printout is not lost
    // for an empty document.
    [[nodiscard]] bool write(const Page& page, std::string& error);

 private:
    std::string path_;
    bool holdsInk_ = false;
};

}  // namespace passbook::sim
