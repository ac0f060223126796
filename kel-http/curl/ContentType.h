// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace kel::http {

// The media type of a file in a form, by the end of its name in any letter case; "application/octet-stream" for all others.
// The types are those that libcurl knows by itself.
const char* contentTypeOf(std::string_view file_name);

}  // namespace kel::http
