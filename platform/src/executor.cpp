// SPDX-License-Identifier: MIT
#include "ko/executor.h"

namespace ko {

executor::~executor() = default;

}  // namespace ko
