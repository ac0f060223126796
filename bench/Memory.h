// SPDX-License-Identifier: MIT
#pragma once

namespace kel::http::bench {

// Of this process, in KiB: its memory that is resident now, and the most of it so far.
long residentKib();
long peakKib();

}  // namespace kel::http::bench
