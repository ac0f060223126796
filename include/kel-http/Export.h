// SPDX-License-Identifier: MIT
#pragma once

// Marks what the shared library shows to the programs that link it; nothing else of it can be reached from outside.
#define KEL_HTTP_EXPORT __attribute__((visibility("default")))
