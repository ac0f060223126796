// SPDX-License-Identifier: MIT
#include "Executor.h"

Executor::~Executor() = default;
