// SPDX-License-Identifier: MIT
#pragma once

// No compiler of this system checks them.
#define KO_GUARDED_BY(mutex)
#define KO_REQUIRES(mutex)
#define KO_EXCLUDES(mutex)
