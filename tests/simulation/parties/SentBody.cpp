// SPDX-License-Identifier: MIT
#include "parties/SentBody.h"

#include <string_view>

#include "parties/Bytes.h"

namespace kel::http::simulation {
namespace {

std::string boundaryIn(const std::string& head) {
    constexpr std::string_view before = "boundary=";
    const auto begin = head.find(before);
    if (begin == std::string::npos) return {};
    return "--" + head.substr(begin + before.size(), head.find("\r\n", begin) - begin - before.size());
}

// A file may have been changed ahead of the set-up.
bool isWhole(const std::string& sent, const std::string& content, bool may_change) {
    if (sent == content) return true;
    return may_change && (sent == content + "more" || sent == content.substr(0, content.size() / 2));
}

// What stands between two boundaries: headers of the part, an empty line, its content.
bool isPart(const RequestScript& request, std::int64_t number, const std::string& text) {
    const auto head_end = text.find("\r\n\r\n");
    if (head_end == std::string::npos || text.size() < head_end + 6) return false;
    const bool is_named = text.find("name=\"part-" + std::to_string(number) + '"') < head_end;
    const std::string sent = text.substr(head_end + 4, text.size() - head_end - 6);
    const bool may_change = ((request.formFiles >> static_cast<unsigned>(number)) & 1) != 0;
    return is_named && isWhole(sent, partBody(request.id, number), may_change);
}

bool isForm(const RequestScript& request, const std::string& boundary, const std::string& body) {
    std::size_t begin = 0;
    for (std::int64_t number = 0; number < request.form; ++number) {
        if (boundary.empty() || body.compare(begin, boundary.size(), boundary) != 0) return false;
        begin += boundary.size();
        const std::size_t end = body.find(boundary, begin);
        if (end == std::string::npos || !isPart(request, number, body.substr(begin, end - begin))) return false;
        begin = end;
    }
    return body.substr(begin) == boundary + "--\r\n";
}

}  // namespace

bool isSentBody(const RequestScript& request, const std::string& head, const std::string& body) {
    if (request.form > 0) return isForm(request, boundaryIn(head), body);
    return isWhole(body, requestBody(request.id, request.body), request.bodyFile != 0);
}

}  // namespace kel::http::simulation
