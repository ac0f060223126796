// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "torture/Faults.h"

using kel::http::torture::Kind;
using kel::http::torture::faults::strike;

// The C library's own, or the sanitizer's where there is one. Looking them up by name would itself ask for memory.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
__attribute__((weak)) void* __interceptor_malloc(std::size_t size);
__attribute__((weak)) void* __interceptor_calloc(std::size_t count, std::size_t size);
__attribute__((weak)) void* __interceptor_realloc(void* block, std::size_t size);
__attribute__((weak)) void* __interceptor_memalign(std::size_t alignment, std::size_t size);
}

namespace {

void* none() {
    errno = ENOMEM;
    return nullptr;
}

void* aligned(std::size_t alignment, std::size_t size) {
    return __interceptor_memalign != nullptr ? __interceptor_memalign(alignment, size)
                                             : __libc_memalign(alignment, size);
}

void* orThrow(void* block) {
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    if (strike(Kind::memory, "malloc", static_cast<long>(size))) return none();
    return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    if (strike(Kind::memory, "calloc", static_cast<long>(count * size))) return none();
    return __interceptor_calloc != nullptr ? __interceptor_calloc(count, size) : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    if (size != 0 && strike(Kind::memory, "realloc", static_cast<long>(size))) return none();
    return __interceptor_realloc != nullptr ? __interceptor_realloc(block, size) : __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return strike(Kind::memory, "memalign", static_cast<long>(size)) ? none() : aligned(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return strike(Kind::memory, "aligned_alloc", static_cast<long>(size)) ? none() : aligned(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    if (strike(Kind::memory, "posix_memalign", static_cast<long>(size))) return ENOMEM;
    *block = aligned(alignment, size);
    return *block == nullptr ? ENOMEM : 0;
}
}

// A sanitizer has these as well, which would pass by malloc().
void* operator new(std::size_t size) {
    return orThrow(malloc(size == 0 ? 1 : size));
}

void* operator new[](std::size_t size) {
    return orThrow(malloc(size == 0 ? 1 : size));
}

void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    return malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    return malloc(size == 0 ? 1 : size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete[](void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

void operator delete(void* block, const std::nothrow_t& /*unused*/) noexcept {
    std::free(block);
}

void operator delete[](void* block, const std::nothrow_t& /*unused*/) noexcept {
    std::free(block);
}
