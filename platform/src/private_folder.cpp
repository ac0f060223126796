// SPDX-License-Identifier: MIT
#include "private_folder.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "logging/Logger.h"

namespace ko {
namespace host {
namespace {

constexpr mode_t owner_only = S_IRWXU;

std::string system_text(int error) {
    return std::error_code(error, std::generic_category()).message();
}

// Looks at what has the name itself, not at what a link leads to. Nobody else can put something else there afterwards:
// in a private folder nobody gets at it, and in one like /tmp only its owner renames or removes it.
std::string fault_of(const std::string& folder) {
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) return "it can not be looked at: " + system_text(errno);
    if (!S_ISDIR(status.st_mode)) return "it is no folder: remove it";
    if (status.st_uid != geteuid()) return fmt::format("it belongs to user {}: remove it", status.st_uid);
    if ((status.st_mode & 0777U) != owner_only) return "others than its owner have rights to it: give it mode 0700";
    return {};
}

}  // namespace

std::string private_folder_path(const char* session_folder, const std::string& shared) {
    const std::string session = session_folder == nullptr ? "" : session_folder;
    if (!session.empty() && session.front() == '/' && fault_of(session).empty()) return session + "/kel-http";
    return fmt::format("{}/kel-http-{}", shared, geteuid());
}

std::string make_private_folder(const std::string& folder) {
    std::string fault = fault_of(folder);
    if (fault.empty()) return fault;
    // Where there is something already, this changes nothing.
    if (mkdir(folder.c_str(), owner_only) != 0 && errno != EEXIST) return "it can not be made: " + system_text(errno);
    return fault_of(folder);
}

std::string choose_private_folder(const char* session_folder, const std::string& shared) {
    const std::string first = private_folder_path(session_folder, shared);
    return make_private_folder(first).empty() ? first : private_folder_path(nullptr, shared);
}

std::string private_folder() {
    static const std::string folder = choose_private_folder(std::getenv("XDG_RUNTIME_DIR"), "/tmp");
    static std::atomic<bool> told{false};
    const std::string fault = make_private_folder(folder);
    if (fault.empty()) {
        told = false;
        return folder;
    }
    if (!told.exchange(true)) {
        logging::getLogger("platforminfo", 0)
            ->write(1, fmt::format("No temporary files are kept: the folder '{}' is not private: {}", folder, fault));
    }
    return {};
}

}  // namespace host
}  // namespace ko
