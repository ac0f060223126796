// SPDX-License-Identifier: MIT
#ifndef CHECKSUM_DIGEST_H
#define CHECKSUM_DIGEST_H

#include <memory>
#include <vector>

#include "ko/span.h"

namespace checksum {

// A checksum over data that arrives in pieces.
//
// Threads: one at a time; the thread may change between calls.
class Digest {
 public:
    virtual ~Digest();
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;

    // Takes the next piece, which may be empty. Nothing of it is kept.
    virtual void do_update(ko::span<const unsigned char> data) = 0;
    // The checksum of all pieces so far, as raw bytes. The object then starts anew, as if nothing had been fed to it.
    virtual std::vector<unsigned char> done() = 0;

 protected:
    Digest() = default;
};

// SHA-256; done() gives 32 bytes.
std::unique_ptr<Digest> sha256();

}  // namespace checksum

#endif  // CHECKSUM_DIGEST_H
