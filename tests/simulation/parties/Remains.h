// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::http::simulation {

// What callers have made, to be looked for when they have let go of it.
class Remains {
 public:
    void watch(std::string name, const std::shared_ptr<const void>& made) {
        watched_.push_back({std::move(name), made});
    }

    // What is still there, and the files of that folder which are open.
    std::vector<std::string> survivors(const std::string& folder) const;

 private:
    struct Watched {
        std::string name;
        std::weak_ptr<const void> made;
    };
    std::vector<Watched> watched_;
};

}  // namespace kel::http::simulation
