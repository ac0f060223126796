// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "kel-http/model/MemoryShortage.h"

namespace kel::http {

// Why the library itself has ended a transfer. libcurl would only tell how it was made to stop, and its result is not told
// then. Engine thread.
class TransferFault {
 public:
    // Whose doing it is: another proxy may help against a peer, but not against ourselves.
    enum class Side { peer, own };

    // The first one counts. Never throws: without memory the fault is the want of it.
    void note(Side side, const char* text) noexcept;
    void note(Side side, const std::string& text) noexcept;

    explicit operator bool() const { return plain != nullptr; }
    bool isOurs() const { return plain != nullptr && whose == Side::own; }
    // Good as long as this object, which has noted one.
    const char* text() const { return detail ? detail->c_str() : plain; }

 private:
    Side whose = Side::own;
    const char* plain = nullptr;
    std::unique_ptr<const std::string> detail;
};

}  // namespace kel::http
