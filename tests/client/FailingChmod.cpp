// SPDX-License-Identifier: MIT
#include "client/FailingChmod.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>

namespace kel::http::test {
namespace {

constexpr mode_t any_mode = static_cast<mode_t>(-1);

std::atomic<int> chmod_error{0};
std::atomic<mode_t> only_mode{any_mode};
std::atomic<std::size_t> chmod_calls{0};

}  // namespace

FailingChmod::FailingChmod(int error) : FailingChmod(error, any_mode) {}

FailingChmod::FailingChmod(int error, mode_t mode) {
    chmod_calls = 0;
    only_mode = mode;
    chmod_error = error;
}

FailingChmod::~FailingChmod() {
    chmod_error = 0;
}

std::size_t FailingChmod::calls() const {
    return chmod_calls;
}

}  // namespace kel::http::test

extern "C" int fchmod(int descriptor, mode_t mode) noexcept {
    using namespace kel::http::test;
    static auto* const real = reinterpret_cast<int (*)(int, mode_t)>(dlsym(RTLD_NEXT, "fchmod"));
    ++chmod_calls;
    const int error = chmod_error;
    if (error == 0) return real(descriptor, mode);
    if (only_mode != any_mode) real(descriptor, only_mode);
    errno = error;
    return -1;
}
