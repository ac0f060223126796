// SPDX-License-Identifier: MIT
#include "support/AllocationFailure.h"

#include <cstdlib>
#include <new>

#include "support/Instruments.h"

namespace kel::http::test {
namespace {

struct Failing {
    // The allocations until the one that fails, that one included; 0 when none does.
    std::size_t left = 0;
    bool all = false;
    std::size_t refused = 0;
};

thread_local Failing failing;

}  // namespace

FailAllocation::FailAllocation(std::size_t n, Extent extent) {
    failing = {n, extent == Extent::all, 0};
}

FailAllocation::~FailAllocation() {
    failing = {};
}

std::size_t FailAllocation::refused() const {
    return failing.refused;
}

bool FailAllocation::isPossible() {
    return !underSanitizer();
}

}  // namespace kel::http::test

namespace {

bool isRefused() {
    auto& failing = kel::http::test::failing;
    if (failing.left == 0) return false;
    if (failing.left > 1) {
        --failing.left;
        return false;
    }
    if (!failing.all) failing.left = 0;
    ++failing.refused;
    return true;
}

}  // namespace

// The memory of all C++ code of the program, also with a sanitizer, since the same objects are linked with and without one.
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    return isRefused() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*unused*/) noexcept {
    std::free(memory);
}
