// SPDX-License-Identifier: MIT
#include "kel-http/curl/TransferFault.h"

#include <new>

namespace kel::http {

void TransferFault::note(Side side, const char* text) noexcept {
    if (plain != nullptr) return;
    whose = side;
    plain = text;
}

void TransferFault::note(Side side, const std::string& text) noexcept {
    if (plain != nullptr) return;
    try {
        detail = std::make_unique<const std::string>(text);
    } catch (const std::bad_alloc&) {
        // The plain text has to do.
    }
    note(side, out_of_memory);
}

}  // namespace kel::http
