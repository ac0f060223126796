// SPDX-License-Identifier: MIT
// The heap, counted: each block on its way in and out. Not for a sanitizer, which has a heap of its own.
#include <malloc.h>

#include <cstddef>

#include "world/Memory.h"

namespace kel::http::simulation {
namespace {

void* countIn(void* block) {
    if (block != nullptr) {
        counted_blocks.fetch_add(1, std::memory_order_relaxed);
        counted_bytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
    }
    return block;
}

void countOut(void* block) {
    if (block == nullptr) return;
    counted_blocks.fetch_sub(1, std::memory_order_relaxed);
    counted_bytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
}

}  // namespace
}  // namespace kel::http::simulation

namespace simulation = kel::http::simulation;

extern "C" {

// glibc's own under the names that remain when the usual ones are taken.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) noexcept {
    return simulation::countIn(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return simulation::countIn(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) noexcept {
    simulation::countOut(block);
    void* const moved = __libc_realloc(block, size);
    if (moved == nullptr && size != 0) {
        simulation::countIn(block);
        return nullptr;
    }
    return simulation::countIn(moved);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return simulation::countIn(__libc_memalign(alignment, size));
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return simulation::countIn(__libc_memalign(alignment, size));
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
    void* const made = simulation::countIn(__libc_memalign(alignment, size));
    if (made == nullptr) return 12;  // ENOMEM
    *block = made;
    return 0;
}

void free(void* block) noexcept {
    simulation::countOut(block);
    __libc_free(block);
}

}  // extern "C"
