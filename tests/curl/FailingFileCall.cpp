// SPDX-License-Identifier: MIT
#include "curl/FailingFileCall.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kel::http::test {
namespace {

// Bytes and not a string: a call may come from anywhere.
std::array<char, 16> failing_call{};
std::atomic<int> failing_error{0};

bool isCookieFile(int descriptor) {
    std::array<char, 64> link{};
    std::array<char, 4096> path{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
    if (readlink(link.data(), path.data(), path.size() - 1) < 0) return false;
    return std::strstr(path.data(), "/httpcookies.") != nullptr;
}

bool isToFail(const char* call) {
    return failing_error != 0 && std::strcmp(failing_call.data(), call) == 0;
}

// Once: whoever tries again succeeds.
bool fail() {
    errno = failing_error.exchange(0);
    return errno != 0;
}

template <typename Function>
Function* systemCall(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

FailingFileCall::FailingFileCall(const std::string& call, int error) {
    call.copy(failing_call.data(), failing_call.size() - 1);
    failing_call.at(call.size()) = '\0';
    failing_error = error;
}

FailingFileCall::~FailingFileCall() {
    failing_error = 0;
}

}  // namespace kel::http::test

extern "C" {

ssize_t write(int descriptor, const void* bytes, std::size_t count) {
    using namespace kel::http::test;
    static auto* const real = systemCall<ssize_t(int, const void*, std::size_t)>("write");
    if (isToFail("write") && isCookieFile(descriptor) && fail()) return -1;
    return real(descriptor, bytes, count);
}

int fsync(int descriptor) {
    using namespace kel::http::test;
    static auto* const real = systemCall<int(int)>("fsync");
    if (isToFail("fsync") && isCookieFile(descriptor) && fail()) return -1;
    return real(descriptor);
}

int close(int descriptor) {
    using namespace kel::http::test;
    static auto* const real = systemCall<int(int)>("close");
    const bool fails = isToFail("close") && isCookieFile(descriptor);
    const int result = real(descriptor);
    return fails && fail() ? -1 : result;
}

int renameat(int from_folder, const char* from, int to_folder, const char* to) noexcept {
    using namespace kel::http::test;
    static auto* const real = systemCall<int(int, const char*, int, const char*)>("renameat");
    if (isToFail("rename") && std::strncmp(from, "httpcookies", 11) == 0 && fail()) return -1;
    return real(from_folder, from, to_folder, to);
}
}
