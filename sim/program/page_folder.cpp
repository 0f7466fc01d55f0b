#include "sim/program/page_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sim/program/page_file.h"

namespace passbook::sim {

std::string PageFolder::nameOf(int number, const char* kind) const {
    std::array<char, 32> name{};
    (void)std::snprintf(name.data(), name.size(), "/%04d.%s", number, kind);
    return path_ + name.data();
}

bool PageFolder::open(const std::string& path) {
    path_ = path;
    growing_ = path_ + "/next.jsonl";
    if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST)
        problem_ = path + ": " + std::strerror(errno);
    else if (access(nameOf(1, "png").c_str(), F_OK) == 0 || access(nameOf(1, "jsonl").c_str(), F_OK) == 0)
        problem_ = path + ": has pages already";
    else
        begin();
    return problem_.empty();
}

PageFolder::~PageFolder() {
    if (events_.valid())
        (void)unlink(growing_.c_str());
}

void PageFolder::begin() {
    events_ = Descriptor(::open(growing_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (!events_.valid())
        problem_ = growing_ + ": " + std::strerror(errno);
}

void PageFolder::note(const std::string& line) {
    if (events_.valid() && problem_.empty() && !writeAll(events_.get(), line + '\n'))
        problem_ = growing_ + ": " + std::strerror(errno);
}

void PageFolder::pageEnded(const Page& page) {
    if (!used() || !problem_.empty() || page.number() == 0)
        return;
    PageFile picture(nameOf(page.number(), "png"));
    picture.writeAnyhow(page);
    problem_ = picture.problem();
    const std::string name = nameOf(page.number(), "jsonl");
    if (rename(growing_.c_str(), name.c_str()) != 0)
        problem_ = name + ": " + std::strerror(errno);
    begin();
}

}  // namespace passbook::sim
