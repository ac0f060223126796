// SPDX-License-Identifier: MIT
#pragma once

// Sanitizers slow programs down, hold freed memory back and need descriptors of their own. Asked when a test runs: the
// same objects of tests are linked with and without them.
namespace kel::http::test {

// Whether this program runs with AddressSanitizer or ThreadSanitizer.
bool underSanitizer();

}  // namespace kel::http::test
