// SPDX-License-Identifier: MIT
#include "Download.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <system_error>

#include "AnswerVerdict.h"
#include "ExplainFailure.h"
#include "Files.h"
#include "RequestBuilder.h"

namespace kel::http::tool {
namespace {

constexpr auto start_anew = "start again without --resume";

RequestConfig request_for(const Options& options, const std::string& url) {
    Options single = options;
    single.url = url;
    RequestConfig config = build_request(single);
    // Always: an answer that must not replace a good file only ever gets as far as PATH.part.
    config.resume = true;
    return config;
}

bool exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

// libcurl would rather tell that such an answer can not be appended to anything.
bool is_refusal(const ErrorData& error, const HeardTransfer& heard) {
    if (error.failure == ClientFailure::RangeError) return heard.status >= 300;
    const bool is_about_body = error.failure == ClientFailure::WriteFailed || error.failure == ClientFailure::Other;
    return is_about_body && heard.status >= 400;
}

}  // namespace

Download::Download(const Options& options, const DownloadTarget& target)
    : options_(options), target_(target), config_(request_for(options, target.url)), part_(target.path) {
    if (!options.size_limit || !options.download.resume || part_.size_before() <= *options.size_limit) return;
    throw ToolError(LocalFileError, fmt::format("'{}' is larger than --size-limit already, it has {} bytes",
                                                part_.path(), part_.size_before()));
}

void Download::start(Client& client, const LogListener& log, unsigned int request, const std::string& name) {
    if (!options_.download.resume) drop_older_part();
    result_.resumed_from = part_.size_before();
    // The library's limit is one for new bytes.
    if (config_.size_limit) *config_.size_limit -= static_cast<std::uint32_t>(part_.size_before());
    log_ = &log;
    request_ = request;
    id_ = client.start_download(
        config_, part_.path(), {}, [this](Client::RequestId, const ResponseData& data) { take(data); },
        [this](Client::RequestId, const ErrorData& data) { take(data); },
        [this](Client::RequestId, const ProgressData& data) { take(data); });
    bar_.emplace(name);
    bar_->update(part_.size_before(), 0);
}

void Download::drop_older_part() {
    if (part_.size_before() > 0) {
        tell(fmt::format("the {} of an earlier run in '{}' are dropped; --resume would go on from there",
                         bytes_text(part_.size_before()), part_.path()));
    }
    part_.start_anew();
}

const ProgressBar& Download::progress() {
    const HeardTransfer answer = heard();
    if (answer.is_success()) bar_->update(received(), answer.total().value_or(0));
    return *bar_;
}

// The file tells it to the byte and beyond 4 GiB, where reports begin anew. Reports know what has not been written yet.
std::uint64_t Download::received() const {
    const std::uint64_t size = part_.size();
    return size < std::numeric_limits<std::uint32_t>::max() ? std::max<std::uint64_t>(size, reported_) : size;
}

void Download::take(const ProgressData& report) {
    // The last report of a resumed download leaves out what was there before.
    if (report.total != report.received || result_.resumed_from == 0) reported_ = report.received;
}

void Download::take(const ResponseData& response) {
    result_.status = response.status;
    result_.timing = response.timing_data ? std::optional(*response.timing_data) : std::nullopt;
    const AnswerVerdict verdict = verdict_on(response.status, heard(), {part_.size_before(), part_.size()});
    result_.code = verdict.code;
    result_.message = verdict.message;
    if (verdict.starts_anew_helps) result_.advice.emplace_back(start_anew);
    if (verdict.starts_anew_helps) part_.restore();
    if (verdict.code != Success) return end(keeps_part());
    conclude();
}

void Download::take(const ErrorData& error) {
    const HeardTransfer answer = heard();
    result_.status = answer.status;
    if (was_whole_before(answer)) return conclude();
    result_.code = TransferError;
    result_.failure = error.failure;
    result_.message = log_->secrets().conceal(error.message);
    if (is_refusal(error, answer)) {
        result_.code = StatusError;
        result_.message = refusal(answer.status);
    } else {
        explain_failure(error, answer);
    }
    end(keeps_part());
}

void Download::explain_failure(const ErrorData& error, const HeardTransfer& answer) {
    if (error.failure == ClientFailure::WriteFailed) return judge_write_error(result_.message);
    if (error.failure == ClientFailure::RangeError) {
        // What somebody has done to the part meanwhile the library tells.
        const bool is_as_before = part_.is_in_place() && part_.size() == part_.size_before();
        if (is_as_before) {
            result_.message =
                fmt::format("the server can not go on after {} bytes: {}", part_.size_before(), result_.message);
        }
        result_.advice.emplace_back(start_anew);
        return;
    }
    // The library does not ask at all where the number of bytes is too large for libcurl.
    constexpr auto most = static_cast<std::uintmax_t>(std::numeric_limits<long>::max());
    if (error.failure == ClientFailure::Other && !answer.is_known() && part_.size_before() > most) {
        result_.advice.emplace_back(start_anew);
        return;
    }
    const std::string hint = log_->secrets().conceal(advice(error, answer.trouble, options_));
    if (!hint.empty()) result_.advice.push_back(hint);
}

// The server has no more, but its page that says so has more than --size-limit leaves room for.
bool Download::was_whole_before(const HeardTransfer& answer) const {
    return answer.status == 416 && part_.size_before() > 0 && answer.range_total == part_.size_before();
}

void Download::conclude() {
    if (!options_.download.show_sha256) return place();
    checksum_.emplace(part_.descriptor(), part_.path());
}

void Download::judge_write_error(const std::string& message) {
    const int reason = part_.find_write_error();
    if (reason == 0 && options_.size_limit) {
        result_.message = "the file is larger than --size-limit";
        return;
    }
    result_.code = LocalFileError;
    // At the end of a file all that the library has to say is its name.
    const std::string action = message == part_.path() ? "can not write" : message + ":";
    result_.message = fmt::format("{} '{}'", action, part_.path());
    if (reason != 0) result_.message += ": " + std::generic_category().message(reason);
    if (const std::string hint = advice_on_file(reason); !hint.empty()) result_.advice.push_back(hint);
}

bool Download::compute() {
    if (!checksum_) return false;
    try {
        if (!checksum_->proceed()) return true;
        result_.sha256 = checksum_->result();
        place();
    } catch (const ToolError& error) {
        end_here(error);
    }
    checksum_.reset();
    return false;
}

void Download::place() {
    const std::string& expected = options_.download.expected_sha256;
    const bool is_other_file = !expected.empty() && result_.sha256 != expected;
    result_.bytes = part_.size();
    // What nobody expected is kept for a look at it, but replaces nothing.
    const bool stays = is_other_file && exists(target_.path);
    try {
        if (!stays) part_.publish();
    } catch (const ToolError& error) {
        return end_here(error);
    }
    result_.file = stays ? part_.path() : target_.path;
    bar_->update(result_.bytes, result_.bytes);
    has_ended_ = true;
    if (!is_other_file) return;
    result_.code = ChecksumError;
    result_.message = fmt::format("the file's SHA-256 is {}, expected was {}", result_.sha256, expected);
    result_.advice.push_back(fmt::format("it is in '{}'{}", result_.file,
                                         stays ? fmt::format(", and '{}' is what it was", target_.path) : ""));
    if (result_.resumed_from > 0) result_.advice.emplace_back(start_anew);
}

// The file is whole, only its place is not.
void Download::end_here(const ToolError& error) {
    result_.code = error.exit_code;
    result_.message = error.what();
    end(true);
}

void Download::interrupt() {
    result_.code = Interrupted;
    result_.message = "cancelled";
    result_.status = heard().status;
    end(true);
}

void Download::end(bool keep_part) {
    has_ended_ = true;
    const HeardTransfer answer = heard();
    // Pages that explain an error are no part of the file, and what belongs elsewhere is none here.
    const bool is_page = answer.is_known() && !answer.is_success();
    if (is_page || answer.is_misplaced(part_.size_before())) part_.restore();
    result_.bytes = part_.is_in_place() ? part_.size() : 0;
    if (result_.bytes == 0) return;
    const std::string amount = bytes_text(result_.bytes);
    if (keep_part) {
        result_.file = part_.path();
        const bool is_useless = !result_.advice.empty() && result_.advice.front() == start_anew;
        result_.advice.push_back(is_useless ? fmt::format("'{}' is left as it is", part_.path())
                                            : fmt::format("{} are in '{}': the same command with --resume goes on "
                                                          "from there",
                                                          amount, part_.path()));
        return;
    }
    part_.remove();
    result_.bytes = 0;
    result_.advice.push_back(
        fmt::format("the {} that had arrived are removed; --keep-partial keeps them, for --resume to go on", amount));
}

}  // namespace kel::http::tool
