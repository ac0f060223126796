// SPDX-License-Identifier: MIT
#pragma once

#include <memory_resource>

namespace kel::http::test {

// The memory that containers of the standard library's `pmr` take when they are told of none, as a program may choose it.
class DefaultMemory {
 public:
    explicit DefaultMemory(std::pmr::memory_resource* resource) : before(std::pmr::set_default_resource(resource)) {}
    ~DefaultMemory() { std::pmr::set_default_resource(before); }
    DefaultMemory(const DefaultMemory&) = delete;
    DefaultMemory& operator=(const DefaultMemory&) = delete;

 private:
    std::pmr::memory_resource* const before;
};

}  // namespace kel::http::test
