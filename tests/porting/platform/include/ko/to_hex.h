// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "ko/span.h"

namespace ko {

std::string to_hex(span<const unsigned char> bytes);

}  // namespace ko
