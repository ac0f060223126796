// SPDX-License-Identifier: MIT
#include "runs/Shrinker.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace kel::http::simulation {
namespace {

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// The number behind the field's '='; false: a word stands there.
bool numberIn(const std::string& field, std::int64_t& number) {
    const std::size_t equals = field.find('=');
    if (equals == std::string::npos || equals + 1 == field.size()) return false;
    char* rest = nullptr;
    number = std::strtoll(field.c_str() + equals + 1, &rest, 10);
    return *rest == '\0';
}

std::string textOf(const std::vector<std::vector<std::string>>& records) {
    std::string text;
    for (const auto& record : records) {
        for (const std::string& word : record) text += (&word == &record.front() ? "" : " ") + word;
        text += '\n';
    }
    return text;
}

}  // namespace

std::string Shrinker::shrink(const std::string& text) {
    records_.clear();
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        Record record;
        for (std::string word; words >> word;) record.push_back(word);
        if (!record.empty()) records_.push_back(std::move(record));
    }
    while (left_ > 0 && round()) {
    }
    return textOf(records_);
}

// What one step makes smaller may let another one go further.
bool Shrinker::round() {
    const bool records = removeRecords();
    const bool fields = resetFields();
    const bool numbers = simplifyNumbers();
    return records || fields || numbers;
}

bool Shrinker::removeRecords() {
    bool less = false;
    for (std::size_t count = std::max<std::size_t>(records_.size() / 2, 1);; count /= 2) {
        less = removeRecords(count) || less;
        if (count == 1) return less;
    }
}

// So many at a time, from the end: what stands there refers to what stands before.
bool Shrinker::removeRecords(std::size_t count) {
    bool less = false;
    for (std::size_t end = records_.size(); end > 0; end -= std::min(end, count)) {
        Records rest = records_;
        const std::size_t first = end - std::min(end, count);
        rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(first), rest.begin() + static_cast<std::ptrdiff_t>(end));
        less = attempt(std::move(rest)) || less;
    }
    return less;
}

bool Shrinker::resetFields() {
    bool less = false;
    for (std::size_t record = 0; record < records_.size(); ++record) {
        Records bare = records_;
        bare[record].resize(1);
        if (records_[record].size() > 1 && attempt(std::move(bare))) {
            less = true;
            continue;
        }
        for (std::size_t field = records_[record].size(); --field > 0;) {
            Records rest = records_;
            rest[record].erase(rest[record].begin() + static_cast<std::ptrdiff_t>(field));
            less = attempt(std::move(rest)) || less;
        }
    }
    return less;
}

bool Shrinker::simplifyNumbers() {
    bool less = false;
    for (std::size_t record = 0; record < records_.size(); ++record) {
        for (std::size_t field = 1; field < records_[record].size(); ++field) {
            while (simplifyNumber(record, field)) less = true;
        }
    }
    return less;
}

bool Shrinker::simplifyNumber(std::size_t record, std::size_t field) {
    const std::string word = records_[record][field];
    std::int64_t number = 0;
    if (!numberIn(word, number)) return false;
    const std::vector<std::int64_t> simpler = simplerThan(number);
    return std::any_of(simpler.begin(), simpler.end(), [&](std::int64_t one) {
        Records rest = records_;
        rest[record][field] = word.substr(0, word.find('=') + 1) + std::to_string(one);
        return attempt(std::move(rest));
    });
}

bool Shrinker::attempt(Records less) {
    if (left_ <= 0) return false;
    --left_;
    if (!fails_(textOf(less))) return false;
    records_ = std::move(less);
    return true;
}

std::vector<std::int64_t> simplerThan(std::int64_t number) {
    std::vector<std::int64_t> simpler;
    const auto add = [&](std::int64_t one) {
        if (one >= 0 && one < number && std::find(simpler.begin(), simpler.end(), one) == simpler.end())
            simpler.push_back(one);
    };
    for (const std::int64_t small : {0, 1, 2}) add(small);
    add(number / 2);
    std::int64_t unit = 1;
    while (unit <= number / 10) unit *= 10;
    for (; unit > 1; unit /= 10) add(number / unit * unit);
    if (number < 10) add(number - 1);
    return simpler;
}

std::string kindOf(const std::string& fault) {
    constexpr int most_words = 6;
    std::istringstream words(fault);
    std::string kind;
    int count = 0;
    for (std::string word; count < most_words && words >> word; ++count) {
        // None or some is a difference, how many is not.
        if (isDigit(word.front()) && word != "0") word.erase(0, word.find_first_not_of("0123456789")).insert(0, "#");
        kind += (kind.empty() ? "" : " ") + word;
    }
    return kind;
}

std::string testOf(const std::string& text, const std::string& fault) {
    return "// " + fault + "\nTEST(SimulationFindingTest, SayWhatHappens) {\n    expectNoFault(R\"(\n" + text +
           ")\");\n}\n";
}

}  // namespace kel::http::simulation
