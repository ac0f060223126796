// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <limits>
#include <memory>
#include <mutex>

#include "checksum/Digest.h"

namespace kel::http::test {

// The bytes of a download that have been written so far, as its checksum sees them.
//
// Threads: any.
class Arrivals {
 public:
    // A SHA-256 that notes here what it is fed with.
    std::unique_ptr<checksum::Digest> digest();

    std::size_t bytes() const;
    // Until so many bytes have been written.
    void await(std::size_t bytes) const;

    // Stops the engine inside the delivery of the piece that makes it so many bytes or more, until goOn().
    void stopAt(std::size_t bytes);
    // Until it has been stopped.
    void awaitStop() const;
    void goOn();

 private:
    class Feed;

    void note(std::size_t bytes);

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::size_t bytes_ = 0;
    std::size_t stop_at_ = std::numeric_limits<std::size_t>::max();
    bool stopped_ = false;
};

}  // namespace kel::http::test
