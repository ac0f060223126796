// SPDX-License-Identifier: MIT
#include "OpenDescriptors.h"

#include <filesystem>
#include <system_error>

namespace kel::http::test {

namespace {

std::map<int, std::string> descriptorsOfThisProcess() {
    std::map<int, std::string> descriptors;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone);
        // The descriptor which reads this folder shows up in it, too.
        if (gone || target == "/proc/" + std::filesystem::read_symlink("/proc/self").string() + "/fd") continue;
        descriptors.emplace(std::stoi(entry.path().filename()), target);
    }
    return descriptors;
}

}  // namespace

OpenDescriptors::OpenDescriptors() : descriptors_(descriptorsOfThisProcess()) {}

std::vector<std::string> OpenDescriptors::opened() const {
    std::vector<std::string> opened;
    for (const auto& [descriptor, target] : descriptorsOfThisProcess()) {
        const auto before = descriptors_.find(descriptor);
        if (before != descriptors_.end() && before->second == target) continue;
        opened.push_back(std::to_string(descriptor) + ' ' + target);
    }
    return opened;
}

}  // namespace kel::http::test
