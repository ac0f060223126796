// SPDX-License-Identifier: MIT
#include "kel-http/curl/CurlLibrary.h"

#include <curl/curl.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kel::http {
namespace {

// What a transfer takes at most between two looks at the reserve, save its large buffers, which libcurl does not leave out.
constexpr std::size_t reserve_bytes = 32768;

// Any thread: libcurl looks names up on threads of its own.
std::atomic<void*> reserve{nullptr};

// Whether libcurl takes its memory from here.
std::atomic<bool> isSource{false};

void giveReserveBack() {
    std::free(reserve.exchange(nullptr));
}

void* allocate(std::size_t bytes) {
    void* const memory = std::malloc(bytes);
    if (memory != nullptr || bytes == 0) return memory;
    giveReserveBack();
    return std::malloc(bytes);
}

// calloc(3) is for what may come from the kernel, as zeros already. For small pieces it is slow: glibc's passes by its
// cache of free ones.
void* allocateZeroed(std::size_t count, std::size_t bytes) {
    constexpr std::size_t small = 1024;
    if (count <= small && bytes <= small && count * bytes <= small) {
        void* const piece = allocate(count * bytes);
        return piece == nullptr ? nullptr : std::memset(piece, 0, count * bytes);
    }
    void* const memory = std::calloc(count, bytes);
    if (memory != nullptr) return memory;
    giveReserveBack();
    return std::calloc(count, bytes);
}

// Whether the piece is as large already.
bool holds([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes) {
#ifdef __GLIBC__
    return memory != nullptr && malloc_usable_size(memory) >= bytes;
#else
    return false;
#endif
}

// libcurl's texts grow by doubling, from 32 bytes on; most of them never need more than they begin with here.
void* reallocate(void* memory, std::size_t bytes) {
    constexpr std::size_t fewest = 256;
    if (memory == nullptr) return allocate(std::max(bytes, fewest));
    if (bytes == 0) {
        std::free(memory);
        return nullptr;
    }
    if (holds(memory, bytes)) return memory;
    void* const moved = std::realloc(memory, bytes);
    if (moved != nullptr) return moved;
    giveReserveBack();
    return std::realloc(memory, bytes);
}

char* duplicate(const char* text) {
    isSource = true;
    const std::size_t bytes = std::strlen(text) + 1;
    void* const copy = allocate(bytes);
    return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, bytes));
}

void initialise() {
    if (curl_global_init_mem(CURL_GLOBAL_ALL, &allocate, &std::free, &reallocate, &duplicate, &allocateZeroed) !=
        CURLE_OK) {
        giveReserveBack();
        throw std::bad_alloc();
    }
}

}  // namespace

CurlLibrary::CurlLibrary() {
    fillReserve();
    initialise();
    isSource = false;
    curl_slist_free_all(curl_slist_append(nullptr, ""));
    // libcurl counts. This is the call by which programs know that it is in use.
    if (curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK) return;
    curl_global_cleanup();
    giveReserveBack();
    throw std::bad_alloc();
}

void CurlLibrary::close() {
    if (!isOpen) return;
    isOpen = false;
    curl_global_cleanup();
    curl_global_cleanup();
    giveReserveBack();
}

void CurlLibrary::fillReserve() {
    if (reserve != nullptr) return;
    void* const memory = std::malloc(reserve_bytes);
    if (memory == nullptr) throw std::bad_alloc();
    std::free(reserve.exchange(memory));
}

bool CurlLibrary::isMemoryAmple() {
    return isSource && reserve != nullptr;
}

}  // namespace kel::http
