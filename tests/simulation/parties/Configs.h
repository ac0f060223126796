// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Script.h"
#include "kel-http/ClientOptions.h"
#include "kel-http/RequestConfig.h"
#include "parties/Folder.h"

namespace kel::http::simulation {

// What a request of a script is for the library. Files that it needs are made.
RequestConfig configOf(const Script& script, const RequestScript& request, const Folder& folder);

// The file that it is downloaded to.
std::string targetOf(const RequestScript& request);
// What is in it before; empty when there is no such file.
std::string oldTarget(const Script& script, const RequestScript& request);

// Those that it sends, and the one that it goes on with.
std::vector<std::string> filesOf(const RequestScript& request);

// With a checksum of downloads that the world knows itself.
ClientOptions clientOptions(const Script& script);

}  // namespace kel::http::simulation
