// SPDX-License-Identifier: MIT
#include "kel-http/protocol.h"

namespace kel::http::protocol {

bool valid_status(long status) {
    return static_cast<unsigned long>(status) - 100UL < 500UL;
}

bool success_status(unsigned int status) {
    return status - 100U < 300U;
}

bool auth_failure(unsigned int status) {
    // 401 and 403 differ in bit 1 alone.
    return status == 407U || (status & ~2U) == 401U;
}

bool ok_status(unsigned int status) {
    return status - 200U <= 99U;
}

}  // namespace kel::http::protocol
