// SPDX-License-Identifier: MIT
#include "Instruments.h"

// Defined by the sanitizers' own libraries, where there are any.
extern "C" {
[[gnu::weak]] void __asan_init();  // NOLINT(bugprone-reserved-identifier)
[[gnu::weak]] void __tsan_init();  // NOLINT(bugprone-reserved-identifier)
}

namespace kel::http::test {

bool underSanitizer() {
    return __asan_init != nullptr || __tsan_init != nullptr;
}

}  // namespace kel::http::test
