// SPDX-License-Identifier: MIT
#pragma once

namespace kel::http::tool {

// Sees to it that the numbers of the standard streams are taken. Where whoever started this process has closed one, the
// next file or connection would get its number, and what is meant for a person would be written to that. Reading such
// a stream and writing to it go on to fail.
//
// Threads: before there are others, and before anything is opened.
// Errors:  std::system_error.
void occupy_standard_streams();

}  // namespace kel::http::tool
