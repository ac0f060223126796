// SPDX-License-Identifier: MIT
#include "parties/Remains.h"

#include <dirent.h>
#include <unistd.h>

#include <array>

namespace kel::http::simulation {
namespace {

std::string fileOf(const std::string& descriptor) {
    std::array<char, 4096> name{};
    const ssize_t size = readlink(("/proc/self/fd/" + descriptor).c_str(), name.data(), name.size());
    return {name.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

}  // namespace

std::vector<std::string> Remains::survivors(const std::string& folder) const {
    std::vector<std::string> names;
    for (const Watched& one : watched_) {
        if (!one.made.expired()) names.push_back(one.name);
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir("/proc/self/fd"), &closedir);
    while (const dirent* const entry = open ? readdir(open.get()) : nullptr) {
        const std::string file = fileOf(entry->d_name);
        if (file.compare(0, folder.size(), folder) == 0) names.push_back("the open file " + file.substr(folder.size()));
    }
    return names;
}

}  // namespace kel::http::simulation
