// SPDX-License-Identifier: MIT
#include "TransferLog.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "LineParts.h"

namespace kel::http::tool {
namespace {

template <typename Number>
std::optional<Number> number_in(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest == text.data()) return std::nullopt;
    return number;
}

bool is_name(std::string_view text, std::string_view name) {
    return text.size() == name.size() && strncasecmp(text.data(), name.data(), name.size()) == 0;
}

// "bytes 5-9/10", "bytes */10", "bytes 5-9/*"
std::optional<std::uint64_t> start_in_range(std::string_view range) {
    const auto blank = range.find(' ');
    return blank == std::string_view::npos ? std::nullopt : number_in<std::uint64_t>(range.substr(blank + 1));
}

std::optional<std::uint64_t> total_in_range(std::string_view range) {
    const auto slash = range.rfind('/');
    return slash == std::string_view::npos ? std::nullopt : number_in<std::uint64_t>(range.substr(slash + 1));
}

void hear_request(HeardTransfer& transfer, std::string_view line) {
    if (after("CONNECT ", line)) transfer.tunnel_is_asked_for = true;
    if (!after("GET ", line)) return;
    transfer.tunnel_is_asked_for = false;
    transfer.status = 0;
}

// "HTTP/1.1 200 OK"
void hear_status(HeardTransfer& transfer, std::string_view line) {
    const auto status = number_in<int>(line.substr(std::min(line.find(' '), line.size() - 1) + 1));
    if (!status || *status < 200) return;
    transfer.status = *status;
    transfer.is_chunked = false;
    transfer.length.reset();
    transfer.range_start.reset();
    transfer.range_total.reset();
}

void hear_header(HeardTransfer& transfer, std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view name = line.substr(0, colon);
    const auto begin = line.find_first_not_of(" \t", colon + 1);
    const std::string_view value = begin == std::string_view::npos ? std::string_view() : line.substr(begin);
    if (is_name(name, "Content-Length")) transfer.length = number_in<std::uint64_t>(value);
    if (is_name(name, "Content-Range")) {
        transfer.range_start = start_in_range(value);
        transfer.range_total = total_in_range(value);
    }
    if (is_name(name, "Transfer-Encoding")) transfer.is_chunked = true;
    // Such a body has an end of its own, whatever was announced.
    if (transfer.is_chunked) transfer.length.reset();
}

void hear_answer(HeardTransfer& transfer, std::string_view line) {
    if (transfer.tunnel_is_asked_for) return;
    if (after("HTTP/", line)) {
        hear_status(transfer, line);
    } else {
        hear_header(transfer, line);
    }
}

}  // namespace

void TransferLog::hear(std::string_view line) {
    const unsigned int id = request_id_of(line);
    const std::string_view text = without_request_id(line);
    ko::lock_guard lock(mutex_);
    if (after("setMicToCtx: ", line)) device_line_ = line;
    if (id == 0) return;
    HeardTransfer& transfer = transfers_[id];
    transfer.trouble.hear(line);
    if (const auto sent = after("[header OUT] ", text)) hear_request(transfer, *sent);
    if (const auto received = after("[header IN] ", text)) hear_answer(transfer, *received);
}

HeardTransfer TransferLog::about(unsigned int request) const {
    ko::lock_guard lock(mutex_);
    const auto found = transfers_.find(request);
    HeardTransfer transfer = found == transfers_.end() ? HeardTransfer() : found->second;
    transfer.trouble.hear(device_line_);
    return transfer;
}

}  // namespace kel::http::tool
