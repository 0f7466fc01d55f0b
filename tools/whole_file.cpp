#include "tools/whole_file.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace passbook::tool {

std::string problemWithTarget(const std::string& path) {
    if (path.empty() || path.back() == '/')
        return "\"" + path + "\" is not the name of a file";
    // What is there is replaced. That must not be a device, or a link to another file.
    GStatBuf there{};
    if (g_lstat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode))
        return path + ": " + (S_ISDIR(there.st_mode) ? std::strerror(EISDIR) : "not a regular file");
    const std::unique_ptr<char, decltype(&g_free)> directory(g_path_get_dirname(path.c_str()), g_free);
    if (g_access(directory.get(), W_OK | X_OK) != 0)
        return path + ": " + std::strerror(errno);
    return {};
}

std::string writeWhole(const std::string& path, std::string_view bytes) {
    if (const std::string problem = problemWithTarget(path); !problem.empty())
        return problem;
    GError* reason = nullptr;
    // In a new file beside it, which then gets its name.
    const bool written =
        g_file_set_contents(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()), &reason) != FALSE;
    std::string problem = written ? "" : reason != nullptr ? reason->message : path + ": it cannot be written";
    g_clear_error(&reason);
    return problem;
}

}  // namespace passbook::tool
