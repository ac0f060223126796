// SPDX-License-Identifier: MIT
#include "kel-http/curl/PartialFile.h"

#include <boost/filesystem.hpp>

#include "kel-http/curl/RequestImpl.h"

namespace kel::http {

tl::optional<std::uintmax_t> partialFileSize(const std::string& path) {
    namespace fs = boost::filesystem;
    if (fs::status(path).type() == fs::file_not_found) return tl::nullopt;
    return fs::file_size(path);
}

tl::optional<std::uintmax_t> askedOffset(const Request& request) {
    return stateOf(request).askedOffset;
}

}  // namespace kel::http
