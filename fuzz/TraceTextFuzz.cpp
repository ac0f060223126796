// SPDX-License-Identifier: MIT
// A credential in the midst of anything else, as libcurl hands it to the trace.
#include "kel-http/curl/TraceText.h"

#include <fuzzer/FuzzedDataProvider.h>

#include "ko/assert.h"

namespace kel::http {
namespace {

constexpr std::string_view secret = "c2VjcmV0";

bool holdsSecret(std::string_view text) {
    return text.find(secret) != std::string_view::npos;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string inAnyCase(std::string text, FuzzedDataProvider& input) {
    for (char& c : text) {
        if (input.ConsumeBool() && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

// The beginning of a line, up to where a credential stands.
std::string beginning(curl_infotype type, FuzzedDataProvider& input) {
    const std::string before = input.ConsumeRandomLengthString();
    if (type == CURLINFO_TEXT) return before + inAnyCase("authorization: ", input);
    if (input.ConsumeBool()) return before + "Authorization:";
    return inAnyCase(input.ConsumeBool() ? "authorization:" : "proxy-authorization:", input);
}

void checkCredential(curl_infotype type, FuzzedDataProvider& input) {
    std::string line = beginning(type, input);
    if (holdsSecret(line)) return;
    line += input.ConsumeRandomLengthString();
    line.append(secret).append(input.ConsumeRemainingBytesAsString());
    const std::string concealed = concealCredentials(type, line);
    KO_ASSERT(!holdsSecret(concealed));
    KO_ASSERT(concealCredentials(type, concealed) == concealed);
}

void checkAnyLine(curl_infotype type, std::string_view line) {
    const std::string shown = concealCredentials(type, line);
    if (shown == line) return;
    KO_ASSERT(type == CURLINFO_HEADER_OUT || type == CURLINFO_TEXT);
    KO_ASSERT(endsWith(shown, " xxxxxx") || (type == CURLINFO_TEXT && endsWith(shown, " xxxxxx]")));
    // Up to there nothing is lost.
    const std::string_view kept = std::string_view(shown).substr(0, shown.rfind(" xxxxxx"));
    KO_ASSERT(line.substr(0, kept.size()) == kept);
}

}  // namespace
}  // namespace kel::http

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kel::http;
    FuzzedDataProvider input(data, size);
    checkCredential(input.ConsumeBool() ? CURLINFO_HEADER_OUT : CURLINFO_TEXT, input);
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    for (const auto type : {CURLINFO_HEADER_IN, CURLINFO_HEADER_OUT, CURLINFO_TEXT}) checkAnyLine(type, line);
    return 0;
}
