// SPDX-License-Identifier: MIT
#ifndef KO_LOG_TEXT_H
#define KO_LOG_TEXT_H

#include <string>
#include <string_view>

namespace logging {

// `text` as it may be shown: control characters (but tabs) and bytes that are no valid UTF-8 are written as `\x1B`, byte
// by byte; other letters stay as they are. The result is `text` itself as long as nothing has to be changed, else it
// stands in `buffer`.
std::string_view printable(std::string_view text, std::string& buffer);

}  // namespace logging

#endif  // KO_LOG_TEXT_H
