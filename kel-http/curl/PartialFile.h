// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <tl/optional.hpp>

namespace kel::http {

// The size in bytes of what is at `path` already, for a resumed download to go on from; empty when nothing is there.
// Throws boost::filesystem::filesystem_error when it is no file.
tl::optional<std::uintmax_t> partialFileSize(const std::string& path);

}  // namespace kel::http
