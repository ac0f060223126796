// SPDX-License-Identifier: MIT
// Any lines of the engine's log, which quote what servers send; then an answer with a range.
#include <fmt/format.h>
#include <fuzzer/FuzzedDataProvider.h>

#include "kel-http/LineParts.h"
#include "kel-http/TransferLog.h"
#include "ko/assert.h"

namespace kel::http::tool {
namespace {

void check(const HeardTransfer& heard) {
    KO_ASSERT(heard.status == 0 || heard.status >= 200);
    KO_ASSERT(!heard.is_chunked || !heard.length);
    KO_ASSERT(!heard.is_success() || heard.is_known());
}

void check_range(TransferLog& log, std::uint64_t start, std::uint64_t end, std::uint64_t total) {
    log.hear("(7) [header OUT] GET / HTTP/1.1");
    log.hear("(7) [header IN] HTTP/1.1 206 Partial Content");
    log.hear(fmt::format("(7) [header IN] Content-Range: bytes {}-{}/{}", start, end, total));
    const HeardTransfer heard = log.about(7);
    KO_ASSERT(heard.status == 206 && !heard.is_chunked && !heard.length);
    KO_ASSERT(heard.range_start == start && heard.total() == total);
    KO_ASSERT(!heard.is_misplaced(start) && heard.is_misplaced(start + 1));
}

}  // namespace
}  // namespace kel::http::tool

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kel::http::tool;
    FuzzedDataProvider input(data, size);
    const auto start = input.ConsumeIntegral<std::uint64_t>();
    const auto end = input.ConsumeIntegral<std::uint64_t>();
    const auto total = input.ConsumeIntegral<std::uint64_t>();
    const std::string text = input.ConsumeRemainingBytesAsString();

    TransferLog log;
    for (const std::string_view line : lines_of(text)) {
        log.hear(line);
        log.hear(fmt::format("(7) [header IN] {}", line));
        check(log.about(7));
    }
    check_range(log, start, end, total);
    return 0;
}
