// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

namespace kel::http::test {

// The descriptors of this process at the time of construction, to find out later which ones have been lost.
class OpenDescriptors {
 public:
    OpenDescriptors();

    // Those open now that were not open then, such as "7 socket:[4711]".
    std::vector<std::string> opened() const;

 private:
    std::map<int, std::string> descriptors_;
};

}  // namespace kel::http::test
