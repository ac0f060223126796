// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "ko/span.h"

namespace checksum {

class Digest {
 public:
    virtual ~Digest() = default;
    virtual void do_update(ko::span<const unsigned char> data) = 0;
    virtual std::vector<unsigned char> done() = 0;
};

std::unique_ptr<Digest> sha256();

}  // namespace checksum
