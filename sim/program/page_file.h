#pragma once

#include <memory>
#include <string>

#include "sim/page.h"

namespace passbook::sim {

/// The PNG file a page is kept in. A reader never sees half of it: it is written under another name and then renamed.
class PageFile {
 public:
    explicit PageFile(std::string path) : path_(std::move(path)) {}

    /// False if a file can't be made there; problem() then says why. What is there stays as it is.
    [[nodiscard]] bool canBeWritten();

    /// Takes a page for writeEjected(). Of a host that ejects one after the other, only the last one is worth a
    /// picture.
    void take(std::shared_ptr<const Page> page);
    [[nodiscard]] bool pending() const { return ejected_ != nullptr; }
    void writeEjected();

    /// Writes the page, unless it is blank and something is there already: a printout, of this run or of one before, is
    /// not lost for an empty document.
    void write(const Page& page);
    /// The same of a blank one, too.
    void writeAnyhow(const Page& page);

    /// Empty as long as everything could be written.
    [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
    std::string path_;  // empty: pages are not kept
    std::shared_ptr<const Page> ejected_;
    std::string problem_;
};

}  // namespace passbook::sim
