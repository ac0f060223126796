// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <tl/optional.hpp>

namespace kel::http {

class Request;

// The size in bytes of what is at `path` already, for a resumed download to go on from; empty when nothing is there.
// Throws boost::filesystem::filesystem_error when it is no file.
tl::optional<std::uintmax_t> partialFileSize(const std::string& path);

// How many bytes the present attempt of a resumed download leaves out, since they were there when it was set up: 0 when
// nothing was. Empty when nobody has been asked. Engine thread.
tl::optional<std::uintmax_t> askedOffset(const Request& request);

}  // namespace kel::http
