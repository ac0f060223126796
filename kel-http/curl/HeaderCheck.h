// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http {

// What is wrong with a request header, for the person who set it; empty: nothing. libcurl sends a line break as it
// stands, so that the rest of a value would become a header of its own. The text names the header and never its value.
std::string headerFault(const std::string& name, const std::string& value);

}  // namespace kel::http
