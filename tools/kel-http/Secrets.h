// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Options.h"

namespace kel::http::tool {

// The logins in the URLs of proxies, those of the environment included: the log and libcurl's messages quote such URLs.
//
// Threads: any, once it is made.
class Secrets {
 public:
    explicit Secrets(const Options& options);

    // The text with "xxxxxx" for each of them.
    std::string conceal(std::string_view text) const;

 private:
    std::vector<std::string> logins_;  // each with its "@"; the longest first, since one may end in another
};

}  // namespace kel::http::tool
