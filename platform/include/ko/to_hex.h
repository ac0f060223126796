// SPDX-License-Identifier: MIT
#ifndef KO_TO_HEX_H
#define KO_TO_HEX_H

#include <string>

#include "ko/span.h"

namespace ko {

// Two lower-case hexadecimal digits for each byte, in order, with nothing between them.
std::string to_hex(span<const unsigned char> bytes);

}  // namespace ko

#endif  // KO_TO_HEX_H
