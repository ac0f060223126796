// SPDX-License-Identifier: MIT
#include "kel-http/curl/EngineTrace.h"

#include <limits>

#include "kel-http/curl/CurlOption.h"
#include "kel-http/curl/TraceText.h"
#include "kel-http/model/LogLine.h"

namespace kel::http {
namespace {

constexpr int lowest_threshold = 3;

struct TraceKind {
    // The lowest verbosity at which the text is looked at.
    int threshold;
    // The level of its lines.
    int level;
    std::string_view tag;
};

TraceKind kindOf(curl_infotype type) {
    constexpr int debug = log_level::debug;
    constexpr int payload = log_level::payload;
    switch (type) {
        case CURLINFO_TEXT:
            return {lowest_threshold, debug, "curl"};
        case CURLINFO_HEADER_IN:
            return {debug, debug, "header IN"};
        case CURLINFO_HEADER_OUT:
            return {debug, debug, "header OUT"};
        case CURLINFO_DATA_IN:
            return {payload, payload, "data IN"};
        case CURLINFO_DATA_OUT:
            return {payload, payload, "data OUT"};
        // What TLS sends and receives is of no use to a reader.
        case CURLINFO_SSL_DATA_IN:
        case CURLINFO_SSL_DATA_OUT:
        case CURLINFO_END:
            break;
    }
    return {std::numeric_limits<int>::max(), 0, {}};
}

bool isPayload(curl_infotype type) {
    return type == CURLINFO_DATA_IN || type == CURLINFO_DATA_OUT;
}

// The rest of a header line whose beginning has been sent, and traced, before: it may be the rest of a credential.
std::string_view withoutRestOfLine(std::string_view text) {
    const auto end = text.find('\n');
    return end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
}

bool isHeader(curl_infotype type) {
    return type == CURLINFO_HEADER_IN || type == CURLINFO_HEADER_OUT;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// A line that begins with a blank continues the header before it; it has no name of its own.
std::string concealedHeader(curl_infotype type, std::string_view line, bool continues, bool& secret) {
    if (!continues) secret = isSecretHeader(line);
    return continues && secret ? "xxxxxx" : concealCredentials(type, line);
}

// Whether a blank has gone from the beginning of what was the first line, too.
bool hasLostBlank(std::string_view text, std::string_view rest) {
    return !rest.empty() && text.data() != rest.data() && isBlank(*(rest.data() - 1));
}

// `secret`: the last header was one, before these lines and after them.
void writeTrace(logging::Logger& logger, const TraceKind& kind, curl_infotype type, unsigned int id,
                std::string_view text, bool& secret) {
    std::string_view rest = trimmed(text);
    bool continues = hasLostBlank(text, rest);
    // What is secret in libcurl's own words may have line feeds in it.
    const std::string own = type == CURLINFO_TEXT ? concealedText(rest) : std::string();
    if (type == CURLINFO_TEXT) rest = own;
    bool several = false;
    for (;; several = true) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        const std::string shown = isHeader(type) ? concealedHeader(type, line, continues, secret) : std::string(line);
        if (!shown.empty()) writeLine(logger, kind.level, "({}) [{}] {}", id, kind.tag, shown);
        if (line.size() == rest.size()) break;
        rest.remove_prefix(line.size() + 1);
        continues = !rest.empty() && isBlank(rest.front());
    }
    if (several) writeLine(logger, kind.level, "({}) [{}] ----", id, kind.tag);
}

}  // namespace

void EngineTrace::turnOn(CURL* easy, logging::Logger& log) {
    setOption(easy, CURLOPT_VERBOSE, 1L);
    setOption(easy, CURLOPT_DEBUGFUNCTION, &Engine::traceTransfer);
    setOption(easy, CURLOPT_DEBUGDATA, &log);
}

bool EngineTrace::isWanted() const {
    return logger.verbosity() >= lowest_threshold;
}

bool EngineTrace::wants(curl_infotype type) const {
    if (!isWanted()) return false;
    return logger.verbosity() >= kindOf(type).threshold;
}

void EngineTrace::write(curl_infotype type, std::string_view text, Engine::ActiveTask* task) const {
    const Request* const request = task == nullptr ? nullptr : task->request.get();
    if (isPayload(type) && request != nullptr && !request->allowsPayloadLogging()) return;

    if (type == CURLINFO_HEADER_OUT && task != nullptr) {
        const bool is_rest = task->tracedLineIsOpen;
        if (!text.empty()) task->tracedLineIsOpen = text.back() != '\n';
        if (is_rest) text = withoutRestOfLine(text);
    }
    // Headers are received one by one, and a header may have several lines.
    bool other = false;
    bool& secret = type == CURLINFO_HEADER_IN && task != nullptr ? task->tracedHeaderIsSecret : other;
    writeTrace(logger, kindOf(type), type, request == nullptr ? 0U : request->id(), text, secret);
}

}  // namespace kel::http
