// SPDX-License-Identifier: MIT
#include "support/AllocationFailure.h"

#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KEL_TEST_OWN_OPERATOR_NEW 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define KEL_TEST_OWN_OPERATOR_NEW 0
#endif
#endif
#ifndef KEL_TEST_OWN_OPERATOR_NEW
#define KEL_TEST_OWN_OPERATOR_NEW 1
#endif

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
    return KEL_TEST_OWN_OPERATOR_NEW != 0;
}

}  // namespace kel::http::test

#if KEL_TEST_OWN_OPERATOR_NEW
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

// The memory of all C++ code of the program.
void* operator new(std::size_t size) {
    void* const memory = isRefused() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
#endif
