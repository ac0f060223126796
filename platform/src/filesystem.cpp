// SPDX-License-Identifier: MIT
#include "ko/filesystem.h"

#include <random>
#include <string>
#include <string_view>

#include "ko/random.h"

namespace ko {
namespace filesystem {
namespace {

// 'd' before 'c' is meant: names already on devices were drawn from the digits in this order.
constexpr std::string_view digits = "0123456789abdcef";

}  // namespace

boost::filesystem::path unique_path(const boost::filesystem::path& pattern, boost::system::error_code& ec) {
    ec.clear();
    std::uniform_int_distribution<int> draw(0, 15);
    std::string name = pattern.string();
    for (char& character : name) {
        if (character == '%') character = digits[static_cast<std::size_t>(draw(randint_e_()))];
    }
    return name;
}

}  // namespace filesystem
}  // namespace ko
