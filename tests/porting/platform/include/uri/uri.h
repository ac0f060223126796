// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace uri {

class uri {
 public:
    explicit uri(const std::string& text);
    const std::string& authority_host() const { return host_; }

 private:
    std::string host_;
};

}  // namespace uri
