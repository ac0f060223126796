// SPDX-License-Identifier: MIT
// Any text for the terminal: what servers send, names of files, messages.
#include "common/TerminalText.h"

#include <clocale>
#include <cstdint>
#include <cwchar>

#include "ko/assert.h"

namespace kel::http::tool {
namespace {

bool is_shown(wchar_t code) {
    return code >= 0x20 && (code < 0x7f || code >= 0xa0) && code <= 0x10ffff;
}

// As the C library sees it, which knows codes beyond the last one as well.
bool is_printable_utf8(std::string_view text) {
    static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    KO_ASSERT(locale != nullptr);
    while (!text.empty()) {
        std::mbstate_t state{};
        wchar_t code = 0;
        const std::size_t bytes = std::mbrtowc(&code, text.data(), text.size(), &state);
        if (bytes == 0 || bytes > text.size() || !is_shown(code)) return false;
        text.remove_prefix(bytes);
    }
    return true;
}

void check(std::string_view text) {
    const std::string shown = printable(text);
    KO_ASSERT(is_printable_utf8(shown));
    KO_ASSERT(shown.size() <= text.size());
    KO_ASSERT(printable(shown) == shown);
    KO_ASSERT(!is_printable_utf8(text) || shown == text);
}

void check_end(const std::string& shown, std::size_t columns) {
    const std::string_view end = last_columns(shown, columns);
    KO_ASSERT(columns_of(end) <= columns);
    KO_ASSERT(end.data() + end.size() == shown.data() + shown.size());
    KO_ASSERT(is_printable_utf8(end));
    KO_ASSERT(columns_of(shown) ==
              columns_of(end) + columns_of(std::string_view(shown).substr(0, shown.size() - end.size())));
}

}  // namespace
}  // namespace kel::http::tool

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    kel::http::tool::check(text);
    const std::size_t columns = size == 0 ? 0 : data[0] % 32U;
    kel::http::tool::check_end(kel::http::tool::printable(text), columns);
    return 0;
}
