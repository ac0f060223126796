// SPDX-License-Identifier: MIT
#include "kel-http/curl/PartialFile.h"

#include <boost/filesystem.hpp>

namespace kel::http {

tl::optional<std::uintmax_t> partialFileSize(const std::string& path) {
    namespace fs = boost::filesystem;
    boost::system::error_code ignored;
    const fs::file_type type = fs::status(path, ignored).type();
    if (type == fs::status_error || type == fs::file_not_found) return tl::nullopt;
    return fs::file_size(path);
}

}  // namespace kel::http
