// SPDX-License-Identifier: MIT
#include "parties/Folder.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "ko/host.h"

namespace kel::http::simulation {
namespace {

constexpr std::size_t random_digits = 8;

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    DIR* const entries = opendir(folder.c_str());
    if (entries == nullptr) return names;
    while (const dirent* const entry = readdir(entries)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(entries);
    return names;
}

bool isDigits(const std::string& text, std::size_t begin) {
    return text.size() >= begin + random_digits &&
           text.find_first_not_of("0123456789abcdef", begin) >= begin + random_digits;
}

// "target.downloading-0123abcd" and "target.0123abcd" lose their digits.
std::string withoutDigits(std::string text) {
    for (const char* const mark : {".downloading-", "."}) {
        const std::string before = mark;
        for (auto at = text.find(before); at != std::string::npos; at = text.find(before, at + 1)) {
            if (isDigits(text, at + before.size())) text.erase(at + before.size(), random_digits);
        }
    }
    return text;
}

}  // namespace

Folder::Folder() {
    std::array<char, 32> name = {"/tmp/kel-http-world-XXXXXX"};
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder can be made in /tmp");
    path_ = name.data();
    ko::host::Settings settings;
    settings.temporary_directory = path_;
    settings.log_level = 0;
    settings.log_sink = nullptr;
    ko::host::configure(settings);
}

Folder::~Folder() {
    for (const std::string& name : namesIn(path_)) unlink(pathOf(name).c_str());
    rmdir(path_.c_str());
}

void Folder::put(const std::string& name, const std::string& content) const {
    std::ofstream(pathOf(name), std::ios::binary) << content;
}

void Folder::remove(const std::string& name) const {
    unlink(pathOf(name).c_str());
}

bool Folder::has(const std::string& name) const {
    return access(pathOf(name).c_str(), F_OK) == 0;
}

std::string Folder::get(const std::string& name) const {
    std::ifstream file(pathOf(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::map<std::string, std::string> Folder::contents() const {
    std::map<std::string, std::string> found;
    for (const std::string& name : namesIn(path_)) {
        const bool is_cookies = name.rfind("httpcookies", 0) == 0;
        found[withoutDigits(name)] = is_cookies ? std::string() : get(name);
    }
    return found;
}

std::string Folder::withoutChance(std::string text) const {
    for (auto at = text.find(path_); at != std::string::npos; at = text.find(path_))
        text.replace(at, path_.size(), "~");
    return withoutDigits(std::move(text));
}

}  // namespace kel::http::simulation
