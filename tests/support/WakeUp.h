// SPDX-License-Identifier: MIT
#pragma once

#include "FileDescriptor.h"

namespace kel::http::test {

// Interrupts a thread in poll(). Threads: any.
class WakeUp {
 public:
    WakeUp();

    // Readable after signal(), until clear().
    int descriptor() const { return event_.get(); }
    void signal() const;
    void clear() const;

 private:
    FileDescriptor event_;
};

}  // namespace kel::http::test
