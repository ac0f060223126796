// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Options.h"

namespace kel::http::tool {

// Where the bytes of a download are collected before it is complete.
std::string part_path(const std::string& target);

// The name that a URL gives to its file: the last segment of its path. What is encoded in it is decoded, unless that
// would make it another thing than a name. Nothing: the path ends in a slash, or there is none.
std::optional<std::string> file_name_in(std::string_view url);

// "URL [PATH] [URL [PATH]]...": the first word is a URL, a later one is when "://" stands in it.
//
// Errors: ToolError with UsageError: no URL, two paths in a row, a URL that names no file, one file for two URLs.
std::vector<DownloadTarget> download_targets(const std::vector<std::string>& words);

}  // namespace kel::http::tool
