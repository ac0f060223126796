// SPDX-License-Identifier: MIT
#include "kel-http/curl/ContentType.h"

#include <algorithm>
#include <array>

#include "kel-http/model/AsciiCase.h"

namespace kel::http {
namespace {

struct KnownType {
    std::string_view ending;
    const char* type;
};

constexpr std::array<KnownType, 10> known_types = {{
    {".gif", "image/gif"},
    {".jpg", "image/jpeg"},
    {".jpeg", "image/jpeg"},
    {".png", "image/png"},
    {".svg", "image/svg+xml"},
    {".txt", "text/plain"},
    {".htm", "text/html"},
    {".html", "text/html"},
    {".pdf", "application/pdf"},
    {".xml", "application/xml"},
}};

bool endsWithIgnoringCase(std::string_view text, std::string_view ending) {
    return text.size() >= ending.size() && startsWithIgnoringCase(text.substr(text.size() - ending.size()), ending);
}

}  // namespace

const char* contentTypeOf(std::string_view file_name) {
    const auto* const known = std::find_if(known_types.begin(), known_types.end(), [&](const KnownType& candidate) {
        return endsWithIgnoringCase(file_name, candidate.ending);
    });
    return known == known_types.end() ? "application/octet-stream" : known->type;
}

}  // namespace kel::http
