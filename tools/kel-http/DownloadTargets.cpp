// SPDX-License-Identifier: MIT
#include "DownloadTargets.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "ToolError.h"

namespace kel::http::tool {
namespace {

constexpr std::string_view scheme_mark = "://";

bool is_url(std::string_view word) {
    return word.find(scheme_mark) != std::string_view::npos;
}

std::optional<unsigned int> hex_digit(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned int>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<unsigned int>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<unsigned int>(c - 'A' + 10);
    return std::nullopt;
}

// "%20" and its like. What is no such thing is kept as it is.
std::string decoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool is_code = text[i] == '%' && i + 2 < text.size() && hex_digit(text[i + 1]) && hex_digit(text[i + 2]);
        result += is_code ? static_cast<char>(*hex_digit(text[i + 1]) << 4U | *hex_digit(text[i + 2])) : text[i];
        if (is_code) i += 2;
    }
    return result;
}

bool is_harmless(const std::string& name) {
    return std::none_of(name.begin(), name.end(),
                        [](char c) { return c == '/' || c == '\x7f' || static_cast<unsigned char>(c) < ' '; });
}

std::string_view path_in(std::string_view url) {
    url = url.substr(0, url.find_first_of("?#"));
    if (const auto mark = url.find(scheme_mark); mark != std::string_view::npos) {
        url.remove_prefix(mark + scheme_mark.size());
    }
    const auto slash = url.find('/');
    return slash == std::string_view::npos ? std::string_view() : url.substr(slash + 1);
}

DownloadTarget target_of(const std::string& url) {
    const auto name = file_name_in(url);
    if (!name) usage_error(fmt::format("the URL '{}' names no file: give a PATH after it", url));
    return {url, *name};
}

// One text for one file, as far as its name tells.
std::string normal(const std::string& path) {
    std::error_code error;
    const auto absolute = std::filesystem::absolute(path, error);
    return (error ? std::filesystem::path(path) : absolute).lexically_normal().string();
}

void check_paths(const std::vector<DownloadTarget>& targets) {
    std::set<std::string> taken;
    for (const DownloadTarget& target : targets) {
        for (const std::string& path : {target.path, part_path(target.path)}) {
            if (taken.insert(normal(path)).second) continue;
            usage_error(fmt::format("two downloads would be written to '{}': give one of them another PATH", path));
        }
    }
}

}  // namespace

std::string part_path(const std::string& target) {
    return target + ".part";
}

std::optional<std::string> file_name_in(std::string_view url) {
    const std::string_view path = path_in(url);
    const auto slash = path.rfind('/');
    const std::string_view segment = slash == std::string_view::npos ? path : path.substr(slash + 1);
    const std::string name = decoded(segment);
    if (name.empty() || name == "." || name == "..") return std::nullopt;
    return is_harmless(name) ? name : std::string(segment);
}

std::vector<DownloadTarget> download_targets(const std::vector<std::string>& words) {
    std::vector<DownloadTarget> targets;
    bool path_may_follow = false;
    for (const std::string& word : words) {
        if (word.empty()) usage_error("a URL or PATH of download is empty");
        if (targets.empty() || is_url(word)) {
            // Its name is needed only if no path follows.
            targets.push_back({word, {}});
            path_may_follow = true;
        } else if (word == "-") {
            usage_error("download writes to files, not to standard output: use get, or './-' for a file of that name");
        } else if (path_may_follow) {
            targets.back().path = word;
            path_may_follow = false;
        } else {
            usage_error(fmt::format(
                "'{}' follows another PATH: give one PATH for each URL, and further URLs with http://", word));
        }
    }
    for (DownloadTarget& target : targets) {
        if (target.path.empty()) target = target_of(target.url);
    }
    check_paths(targets);
    return targets;
}

}  // namespace kel::http::tool
