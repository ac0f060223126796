// SPDX-License-Identifier: MIT
#ifndef TESTS_PLATFORM_CONFIGURED_HOST_H
#define TESTS_PLATFORM_CONFIGURED_HOST_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ko/host.h"

// A folder that vanishes with the object.
class TemporaryFolder {
 public:
    TemporaryFolder() {
        std::string pattern = testing::TempDir() + "platformXXXXXX";
        path_ = mkdtemp(pattern.data());
    }
    ~TemporaryFolder() {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + '/' + name; }

    void write(const std::string& name, const std::string& content) const {
        std::ofstream(file(name), std::ios::binary) << content;
    }

    std::vector<std::string> lines_of(const std::string& name) const {
        std::ifstream stream(file(name));
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) lines.push_back(line);
        return lines;
    }

 private:
    std::string path_;
};

// A log line that outlives the sink's call.
struct KeptLine {
    std::string logger;
    int level;
    std::string text;

    friend bool operator==(const KeptLine& left, const KeptLine& right) {
        return left.logger == right.logger && left.level == right.level && left.text == right.text;
    }
    friend std::ostream& operator<<(std::ostream& stream, const KeptLine& line) {
        return stream << '[' << line.logger << "] " << line.level << ' ' << line.text;
    }
};

// For tests that configure the host: quiet, with a secure store that is not looked at, unless the test changes it.
class ConfiguredHost : public testing::Test {
 protected:
    ConfiguredHost() { settings.log_sink = nullptr; }
    ~ConfiguredHost() override {
        ko::host::Settings quiet;
        quiet.secure_store_directory = "/nonexistent";
        quiet.log_level = 0;
        quiet.log_sink = nullptr;
        ko::host::configure(quiet);
    }

    ko::host::LogSink keep_lines() {
        return [this](const ko::host::LogLine& line) {
            lines.push_back({std::string(line.logger), line.level, std::string(line.text)});
        };
    }

    ko::host::Settings settings = without_identity();
    std::vector<KeptLine> lines;

 private:
    static ko::host::Settings without_identity() {
        ko::host::Settings result;
        result.secure_store_directory = "/nonexistent";
        return result;
    }
};

#endif  // TESTS_PLATFORM_CONFIGURED_HOST_H
