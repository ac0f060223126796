// SPDX-License-Identifier: MIT
#include "TemporaryDirectory.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace kel::http::test {

TemporaryDirectory::TemporaryDirectory()
    : path_(std::filesystem::temp_directory_path() / "kel-test-XXXXXX"), owner_(getpid()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    if (getpid() != owner_) return;
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TemporaryDirectory::names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace kel::http::test
