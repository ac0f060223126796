// SPDX-License-Identifier: MIT
#include "kel-http/curl/PartialFile.h"

#include <boost/filesystem.hpp>

namespace kel::http {

tl::optional<std::uintmax_t> partialFileSize(const std::string& path) {
    namespace fs = boost::filesystem;
    if (fs::status(path).type() == fs::file_not_found) return tl::nullopt;
    return fs::file_size(path);
}

}  // namespace kel::http
