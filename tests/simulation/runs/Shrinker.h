// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kel::http::simulation {

// A script is cut down to less and less that still fails: records go, fields get their default again, numbers become small
// or round. It works on the text, a record on each line, so that whatever a script can say can be cut.
class Shrinker {
 public:
    // Whether this text still fails, in the same way; one that is no script does not.
    using Fails = std::function<bool(const std::string& text)>;

    Shrinker(Fails fails, std::int64_t most_tries) : fails_(std::move(fails)), left_(most_tries) {}

    // `text` fails; so does what is returned.
    std::string shrink(const std::string& text);

    std::int64_t triesLeft() const { return left_; }

 private:
    // A record: its name, then "field=value".
    using Record = std::vector<std::string>;
    using Records = std::vector<Record>;

    bool round();
    bool removeRecords();
    bool removeRecords(std::size_t count);
    bool resetFields();
    bool simplifyNumbers();
    bool simplifyNumber(std::size_t record, std::size_t field);
    // Takes it if it fails.
    bool attempt(Records less);

    Fails fails_;
    std::int64_t left_;
    Records records_;
};

// What stands for a number in turn until one of them does it: smaller ones first, then rounder ones.
std::vector<std::int64_t> simplerThan(std::int64_t number);

// The words by which a fault is told from another one. Numbers and the request that it befell do not count.
std::string kindOf(const std::string& fault);

// A test to be pasted in.
std::string testOf(const std::string& text, const std::string& fault);

}  // namespace kel::http::simulation
