// SPDX-License-Identifier: MIT
#ifndef KO_ASSERT_H
#define KO_ASSERT_H

// The always-on assertion. Release builds keep it: a broken rule of use stops the process on every build alike.
//
// Prints one line to standard error, "<file>:<line>: <function>: Assertion '<expression>' failed.", and aborts.
// The expression is printed as it was written, so its text may be relied upon by whoever reads crash reports.
// Threads: any. Nothing is allocated, so it also works when memory is short or a lock of the allocator is held.
#define KO_ASSERT(expression) \
    ((expression) ? static_cast<void>(0) : ::ko::assertion_failed(#expression, __FILE__, __LINE__, __func__))

namespace ko {

// What KO_ASSERT calls; of no use by itself.
[[noreturn]] void assertion_failed(const char* expression, const char* file, int line, const char* function) noexcept;

}  // namespace ko

#endif  // KO_ASSERT_H
