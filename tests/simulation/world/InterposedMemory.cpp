// SPDX-License-Identifier: MIT
// The heap, counted: each block on its way in and out.
#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <filesystem>

#include "world/Memory.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KEL_COUNTS_MEMORY 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define KEL_COUNTS_MEMORY 0
#endif
#endif
#ifndef KEL_COUNTS_MEMORY
#define KEL_COUNTS_MEMORY 1
#endif

namespace kel::http::simulation {
namespace {

// Whatever thread allocates, even one that the world does not know.
std::atomic<std::int64_t> all_blocks{0};
std::atomic<std::int64_t> all_bytes{0};

}  // namespace

Memory Memory::now() {
    return {all_blocks.load(std::memory_order_relaxed), all_bytes.load(std::memory_order_relaxed)};
}

std::int64_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

#if KEL_COUNTS_MEMORY
namespace {

void* countIn(void* block) {
    if (block != nullptr) {
        all_blocks.fetch_add(1, std::memory_order_relaxed);
        all_bytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
    }
    return block;
}

void countOut(void* block) {
    if (block == nullptr) return;
    all_blocks.fetch_sub(1, std::memory_order_relaxed);
    all_bytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(block)), std::memory_order_relaxed);
}

}  // namespace
#endif

}  // namespace kel::http::simulation

#if KEL_COUNTS_MEMORY
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
#endif
