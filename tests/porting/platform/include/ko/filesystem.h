// SPDX-License-Identifier: MIT
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>

namespace ko::filesystem {

boost::filesystem::path unique_path(const boost::filesystem::path& pattern, boost::system::error_code& ec);

}  // namespace ko::filesystem
