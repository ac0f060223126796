// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace kel::http::tool {

// Tells which proxy served a request and which did not, and why. It reads that in the lines of the engine's log, which
// have to be those of one request, up to the engine's steps (level 8).
class ProxyReport {
 public:
    using Tell = std::function<void(const std::string& sentence)>;

    explicit ProxyReport(Tell tell) : tell_(std::move(tell)) {}

    void hear(std::string_view line);

 private:
    void begin(std::string_view proxy);
    void hear_candidates(std::string_view list);
    void hear_environment(std::string_view text);
    void hear_trace(std::string_view text);
    void hear_end(std::string_view text);
    void hear_failure(std::string_view connect_code);
    std::string reason(std::string_view connect_code) const;

    const Tell tell_;
    std::set<std::string> told_as_listed_;

    // This attempt.
    std::string proxy_;  // empty: none
    bool was_asked_ = false;
    bool was_refused_ = false;
    std::string result_;  // libcurl's name for it
};

}  // namespace kel::http::tool
