// SPDX-License-Identifier: MIT
#include "model/Reading.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace kel::http::simulation {
namespace {

constexpr std::string_view line_end = "\r\n";

std::int64_t number(std::string_view text, int base) {
    std::int64_t value = -1;
    std::from_chars(text.data(), text.data() + text.size(), value, base);
    return value;
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

class Reader {
 public:
    explicit Reader(std::string_view bytes) : rest_(bytes), all_(bytes.size()) {}

    Reading read() {
        while (readHead()) {
            const int status = status_;
            if (status >= 200) {
                reading_.status = status;
                reading_.head = all_ - rest_.size();
                readBody();
                break;
            }
        }
        return std::move(reading_);
    }

 private:
    // False: it is not there as a whole.
    bool takeLine(std::string_view& line) {
        const auto end = rest_.find(line_end);
        if (end == std::string_view::npos) return false;
        line = rest_.substr(0, end);
        rest_.remove_prefix(end + line_end.size());
        return true;
    }

    // Up to the empty line.
    bool readLines() {
        for (std::string_view line; takeLine(line);) {
            if (line.empty()) return true;
            reading_.lineBytes += line.size() + line_end.size();
            const auto colon = line.find(": ");
            if (colon == std::string_view::npos) continue;
            reading_.headers.emplace_back(lowerCase(line.substr(0, colon)), line.substr(colon + 2));
        }
        return false;
    }

    bool readHead() {
        constexpr std::string_view beginning = "HTTP/";
        const auto shown = std::min(rest_.size(), beginning.size());
        reading_.isForeign = rest_.substr(0, shown) != beginning.substr(0, shown);
        std::string_view line;
        if (reading_.isForeign || !takeLine(line) || line.size() < 12) return false;
        reading_.hasBegun = true;
        reading_.begun = static_cast<int>(number(line.substr(9, 3), 10));
        status_ = reading_.begun;
        return readLines();
    }

    void readBody() {
        const bool has_body = reading_.status != 204 && reading_.status != 304;
        reading_.closes = reading_.header("connection") == "close";
        if (!has_body) {
            reading_.isWhole = true;
        } else if (reading_.header("transfer-encoding") == "chunked") {
            reading_.isChunked = true;
            readChunks();
        } else if (const std::string length = reading_.header("content-length"); !length.empty()) {
            reading_.announced = number(length, 10);
            reading_.body = rest_.substr(0, static_cast<std::size_t>(reading_.announced));
            reading_.isWhole = static_cast<std::int64_t>(reading_.body.size()) == reading_.announced;
        } else {
            reading_.body = rest_;
        }
    }

    void readChunks() {
        for (std::string_view line; takeLine(line);) {
            const auto size = static_cast<std::size_t>(number(line, 16));
            reading_.isMalformed = number(line, 16) < 0;
            if (reading_.isMalformed) return;
            if (size == 0) {
                const bool began = !rest_.empty();
                reading_.isWhole = readLines();
                reading_.lacksLineFeed = rest_ == "\r";
                reading_.endsInTrailer = began && !reading_.isWhole;
                return;
            }
            reading_.body += rest_.substr(0, size);
            if (rest_.size() < size + line_end.size()) return;
            rest_.remove_prefix(size + line_end.size());
        }
        // Of a size that has not come as a whole the first digit shows.
        reading_.isMalformed = !rest_.empty() && number(rest_, 16) < 0;
    }

    std::string_view rest_;
    const std::size_t all_;
    int status_ = 0;
    Reading reading_;
};

}  // namespace

std::string Reading::header(std::string_view name) const {
    const auto found =
        std::find_if(headers.begin(), headers.end(), [name](const auto& line) { return line.first == name; });
    return found == headers.end() ? std::string() : found->second;
}

Reading readAnswer(std::string_view bytes) {
    return Reader(bytes).read();
}

}  // namespace kel::http::simulation
