#pragma once

#include <string>

#include "sim/page.h"
#include "sim/program/descriptor.h"

namespace passbook::sim {

/// A folder that keeps every page on which something was printed, 0001.png, and what happened until its end, 0001.jsonl.
class PageFolder {
 public:
    /// Makes the folder if there is none. False if it can't be used, or has pages already: nobody could tell those of
    /// two runs apart. problem() then says why.
    [[nodiscard]] bool open(const std::string& path);
    ~PageFolder();

    void note(const std::string& line);
    void pageEnded(const Page& page);

    [[nodiscard]] bool used() const { return !path_.empty(); }
    /// Empty as long as everything could be written.
    [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
    [[nodiscard]] std::string nameOf(int number, const char* kind) const;
    void begin();

    std::string path_;     // empty: pages are not kept
    std::string growing_;  // the file with the events of the page that comes next
    Descriptor events_;
    std::string problem_;
};

}  // namespace passbook::sim
