// SPDX-License-Identifier: MIT
#include "DownloadOptions.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "DownloadTargets.h"
#include "ToolError.h"
#include "common/TerminalText.h"

namespace kel::http::tool {
namespace {

constexpr const char* checksum_option = "--sha256";
constexpr std::size_t checksum_digits = 64;
constexpr std::string_view no_value = "true";  // as the parser has it

template <typename Test>
bool all_of(std::string_view text, Test test) {
    return std::all_of(text.begin(), text.end(), [test](char c) { return test(static_cast<unsigned char>(c)) != 0; });
}

bool is_hex(std::string_view text) {
    return !text.empty() && all_of(text, [](int c) { return std::isxdigit(c); });
}

bool is_checksum(std::string_view text) {
    return text.size() == checksum_digits && is_hex(text);
}

// A file that nobody has checked must not be the price of a slip: about as long, and with nothing that names and URLs
// are known by, it is taken for one as well.
bool is_like_checksum(std::string_view text) {
    const bool is_as_long = text.size() + 4 >= checksum_digits && text.size() <= checksum_digits + 4;
    return is_hex(text) || (is_as_long && all_of(text, [](int c) { return std::isalnum(c); }));
}

bool is_blank_or_control(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0 || std::iscntrl(static_cast<unsigned char>(c)) != 0;
}

// Where nearly a whole checksum begins, or npos.
std::size_t find_checksum(std::string_view text) {
    constexpr std::size_t nearly_all = checksum_digits - 4;
    for (std::size_t i = 0; i + nearly_all <= text.size(); ++i) {
        if (is_hex(text.substr(i, nearly_all))) return i;
    }
    return std::string_view::npos;
}

// As other programs print it: "HEX  file", "sha256:HEX", "SHA256 (file) = HEX". URLs and paths have such names in them
// too, with a slash in front.
bool has_checksum(std::string_view text) {
    const std::size_t begin = find_checksum(text);
    if (begin == std::string_view::npos || text.find("://") != std::string_view::npos) return false;
    return std::any_of(text.begin(), text.end(), is_blank_or_control) ||
           (text.find(':') != std::string_view::npos && text.substr(0, begin).find('/') == std::string_view::npos);
}

std::string checked_checksum(std::string text) {
    if (!is_checksum(text)) {
        usage_error(fmt::format("--sha256 '{}' is no checksum: give its 64 hexadecimal digits, or none at all",
                                printable(text)));
    }
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

void check_other_command(const CLI::App& app) {
    for (const char* const option : {"--resume", "--keep-partial", checksum_option}) {
        if (app.count(option) > 0) usage_error(fmt::format("{} goes with download", option));
    }
}

void check_other_options(const Options& options) {
    if (options.data || options.data_file || options.upload || !options.form.empty()) {
        usage_error("download sends no body: use another command, or leave it out");
    }
    if (options.output) usage_error("download writes to the PATH behind the URL: leave out -o/--output");
    if (options.include_headers) usage_error("download prints no headers: leave out -i/--include, or use -vv");
}

void check_checksum(DownloadOptions& download) {
    download.show_sha256 = true;
    const std::string given = std::exchange(download.expected_sha256, {});
    if (given == no_value) return;
    download.expected_sha256 = checked_checksum(given);
    if (download.targets.size() > 1) {
        usage_error("--sha256 EXPECTED goes with one URL: leave out the checksum, or download one by one");
    }
}

}  // namespace

void add_download_options(CLI::App& app, Options& options) {
    constexpr const char* group = "Download";
    DownloadOptions& download = options.download;
    app.add_flag("--resume", download.resume, "go on with what PATH.part holds")->group(group);
    app.add_flag("--keep-partial", download.keep_partial, "keep PATH.part when a download fails")->group(group);
    app.add_flag(checksum_option, download.expected_sha256,
                 "print the file's SHA-256; another one than EXPECTED is an error")
        ->option_text("[EXPECTED]")
        ->group(group);
}

std::vector<std::string> with_joined_checksum(const std::vector<std::string>& words) {
    std::vector<std::string> joined;
    for (const std::string& word : words) {
        // A shell's variable without a value must not pass for a checksum that nobody asked for.
        if (word == std::string(checksum_option) + '=') checked_checksum({});
        if (!joined.empty() && joined.back() == checksum_option && (is_like_checksum(word) || has_checksum(word))) {
            joined.back() += '=' + checked_checksum(word);
        } else {
            joined.push_back(word);
        }
    }
    return joined;
}

void check_download_options(const CLI::App& app, Options& options, const std::vector<std::string>& words) {
    if (!app.got_subcommand("download")) return check_other_command(app);
    check_other_options(options);
    options.download.targets = download_targets(words);
    if (app.count(checksum_option) > 1) usage_error("--sha256 goes once: leave the others out");
    if (app.count(checksum_option) > 0) check_checksum(options.download);
}

}  // namespace kel::http::tool
