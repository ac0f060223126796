// SPDX-License-Identifier: MIT
// A credential in the midst of anything else, as libcurl hands it to the trace.
#include "kel-http/curl/TraceText.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>

#include "ko/assert.h"

namespace kel::http {
namespace {

constexpr std::string_view secret = "c2VjcmV0";

bool holdsSecret(std::string_view text) {
    return text.find(secret) != std::string_view::npos;
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
    if (type == CURLINFO_HEADER_OUT && input.ConsumeBool()) return before + "Authorization:";
    constexpr std::array<const char*, 5> names = {
        "proxy-authorization:", "set-cookie:", "x-token:", "secret:", "api-key:"};
    return inAnyCase(input.PickValueInArray(names), input);
}

void checkCredential(curl_infotype type, FuzzedDataProvider& input) {
    std::string line = beginning(type, input);
    if (holdsSecret(line)) return;
    line += input.ConsumeRandomLengthString();
    line.append(secret).append(input.ConsumeRemainingBytesAsString());
    KO_ASSERT(!holdsSecret(concealCredentials(type, line)));
}

// The user or the password in an URL, in a header or in what libcurl says.
void checkUrl(curl_infotype type, FuzzedDataProvider& input) {
    const std::string before = input.ConsumeRandomLengthString();
    std::string password = input.ConsumeRandomLengthString();
    const std::string after = input.ConsumeRemainingBytesAsString();
    if (holdsSecret(before) || holdsSecret(after) || password.find_first_of("/?#") != std::string::npos) return;
    KO_ASSERT(
        !holdsSecret(concealCredentials(type, before + "http://" + password + std::string(secret) + '@' + after)));
}

void checkAnyLine(curl_infotype type, std::string_view line) {
    const std::string shown = concealCredentials(type, line);
    if (shown == line) return;
    // Without a mask in it nothing has been taken away either.
    KO_ASSERT(shown.find("xxxxxx") != std::string::npos);
    KO_ASSERT(line.find_first_of(":@\"'") != std::string_view::npos);
}

}  // namespace
}  // namespace kel::http

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kel::http;
    FuzzedDataProvider input(data, size);
    constexpr std::array<curl_infotype, 3> types = {CURLINFO_HEADER_IN, CURLINFO_HEADER_OUT, CURLINFO_TEXT};
    const curl_infotype type = input.PickValueInArray(types);
    if (input.ConsumeBool()) {
        checkCredential(type, input);
    } else {
        checkUrl(type, input);
    }
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    for (const auto any : types) checkAnyLine(any, line);
    return 0;
}
