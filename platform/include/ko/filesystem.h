// SPDX-License-Identifier: MIT
#ifndef KO_FILESYSTEM_H
#define KO_FILESYSTEM_H

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>

namespace ko {
namespace filesystem {

// Returns `pattern` with every '%' replaced by a random hexadecimal digit, each drawn on its own.
//
// Every '%' means every one: those of a directory that the caller did not think of as a pattern are replaced as well.
// No file is looked at: whether the name is free is not checked, and nothing is made.
// Threads: any; each has its own random engine.
// Errors:  `ec` is always cleared. A system without a random device lets std::random_device's exception through.
boost::filesystem::path unique_path(const boost::filesystem::path& pattern, boost::system::error_code& ec);

}  // namespace filesystem
}  // namespace ko

#endif  // KO_FILESYSTEM_H
