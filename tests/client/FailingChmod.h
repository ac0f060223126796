// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace kel::http::test {

// While it lives, fchmod(2) fails with an error, as on a filesystem without modes. In programs that link the source. One
// at a time; any thread may call.
class FailingChmod {
 public:
    explicit FailingChmod(int error);
    // Files have this mode meanwhile, whatever is wished.
    FailingChmod(int error, mode_t mode);
    ~FailingChmod();
    FailingChmod(const FailingChmod&) = delete;
    FailingChmod& operator=(const FailingChmod&) = delete;

    // So far.
    std::size_t calls() const;
};

}  // namespace kel::http::test
