// SPDX-License-Identifier: MIT
#pragma once

#include <locale>

namespace kel::http::test {

// Makes the classic locale with one other facet the global one, and the earlier one global again at its end. One at a
// time: the locale is the whole process's.
class GlobalLocale {
 public:
    // The locale deletes the facet.
    template <typename Facet>
    explicit GlobalLocale(Facet* facet) : before_(std::locale::global(std::locale(std::locale::classic(), facet))) {}
    ~GlobalLocale() { std::locale::global(before_); }
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;

 private:
    const std::locale before_;
};

}  // namespace kel::http::test
