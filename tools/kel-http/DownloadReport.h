// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "DownloadResult.h"
#include "Options.h"

namespace kel::http::tool {

// What failed, on what, and what can be done: for a person.
std::string explain(const DownloadTarget& target, const DownloadResult& result);

// "HEX  PATH", as sha256sum prints it and reads it again, with a line feed.
std::string checksum_line(const DownloadResult& result);

// The result as one JSON object in one line, with a line feed.
std::string json_line(const DownloadTarget& target, const DownloadResult& result);

}  // namespace kel::http::tool
