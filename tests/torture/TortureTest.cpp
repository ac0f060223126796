// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "support/Environment.h"
#include "torture/Child.h"
#include "torture/Courses.h"
#include "torture/Findings.h"
#include "torture/Scenario.h"

// Each call that a request needs fails in turn, and whatever it is, exactly one of the documented ends comes of it.
//
//   torture_tests [GOOGLETEST-OPTION...] [--all]
//
// Without --all most of the calls for memory of a handshake are left out, for the sake of time.
namespace kel::http::torture {
namespace {

// Every so many-th call for memory fails; 0: as many as fit into a test run.
long stride = 0;

long strideOf(const std::string& scenario) {
    if (stride != 0) return stride;
    return scenarioNamed(scenario).tls ? 37 : 1;
}

// Seconds. A run takes some thousandths of one.
long patience = 5;
constexpr std::chrono::seconds longest_silence{25};

// What stops the process as documented, by what it says then, and why it may.
struct DocumentedEnd {
    const char* words;
    const char* reason;
};
constexpr DocumentedEnd documented_ends[] = {
    {"Assertion 'ret == CURLE_OK' failed", "libcurl's answer about a status that it has itself can not be missing"},
};

bool isDocumented(const std::vector<std::string>& words) {
    for (const std::string& line : words) {
        for (const DocumentedEnd& end : documented_ends) {
            if (line.find(end.words) != std::string::npos) return true;
        }
    }
    return false;
}

// Runs one scenario's failures in processes, a new one behind each that dies or hangs.
class Driver {
 public:
    explicit Driver(const std::string& scenario) : scenario_(scenario), stride_(strideOf(scenario)) {}

    std::vector<Finding> run() {
        while (!ended_) runProcess();
        return findings_;
    }

 private:
    void runProcess() {
        std::vector<std::string> arguments{scenario_, std::to_string(stride_), std::to_string(patience)};
        if (call_ != 0) arguments.insert(arguments.end(), {std::to_string(course_), std::to_string(call_)});
        Child child(arguments);
        lines_.clear();
        died_ = false;
        for (std::string line;;) {
            const Child::Event event = child.next(line, longest_silence);
            if (event == Child::Event::end) return noteDeath(child.status());
            if (event == Child::Event::silence || line == "@stuck") return endHanging(child);
            read(line);
        }
    }

    void read(const std::string& line) {
        if (line.rfind("@at ", 0) == 0) {
            lines_.clear();
            noteRun(line.substr(4));
        } else if (line.rfind("@finding ", 0) == 0) {
            add(line.substr(9));
        } else if (line.rfind("@died ", 0) == 0) {
            died_ = true;
            add("the process dies of signal " + line.substr(6));
        } else if (line.rfind("@site ", 0) == 0 && line != "@site end") {
            site_ = line.substr(6);
            frames_.clear();
            reading_ = &frames_;
        } else if (line == "@where") {
            where_.clear();
            reading_ = &where_;
        } else if (line == "@site end") {
            reading_ = nullptr;
            for (std::size_t i = first_of_run_; i < findings_.size(); ++i) {
                findings_[i].site = site_;
                findings_[i].frames = frames_;
            }
        } else if (line == "@where end") {
            reading_ = nullptr;
            findings_.back().where = where_;
        } else if (line == "@end") {
            ended_ = true;
        } else if (reading_ != nullptr) {
            reading_->push_back(line);
        } else {
            lines_.push_back(line);
        }
    }

    void noteRun(const std::string& place) {
        course_ = static_cast<std::size_t>(std::strtol(place.c_str(), nullptr, 10));
        call_ = std::strtol(place.c_str() + place.find(' '), nullptr, 10);
        first_of_run_ = findings_.size();
        ++runs_;
    }

    void add(const std::string& what) {
        findings_.push_back({scenario_, courses()[course_].name, call_, what, {}, {}, {}, {}, {}});
    }

    void goOn() {
        if (call_ == 0) ended_ = true;  // it did not even begin
        call_ += courses()[course_].kind == Kind::memory ? stride_ : 1;
    }

    void endHanging(const Child& child) {
        if (first_of_run_ == findings_.size()) add("the process hangs");
        findings_.back().stacks = child.stacks();
        child.kill();
        goOn();
    }

    void noteDeath(int status) {
        if (ended_ && status == 0) return;
        ended_ = false;
        if (!died_) add("the process ends with status " + std::to_string(status));
        findings_.back().words = lines_;
        if (isDocumented(lines_)) findings_.resize(first_of_run_);
        goOn();
    }

    const std::string scenario_;
    const long stride_;
    std::vector<Finding> findings_;
    std::vector<std::string> lines_;
    std::vector<std::string> frames_;
    std::vector<std::string> where_;
    std::vector<std::string>* reading_ = nullptr;
    std::string site_;
    std::size_t course_ = 0;
    std::size_t first_of_run_ = 0;
    std::size_t runs_ = 0;
    long call_ = 0;
    bool died_ = false;
    bool ended_ = false;
};

// All of the process, for one table behind the tests.
std::vector<Finding>& allFindings() {
    static auto* const instance = new std::vector<Finding>;
    return *instance;
}

class TortureTest : public testing::TestWithParam<std::string> {};

TEST_P(TortureTest, EachFailureHasADocumentedEnd) {
    const std::vector<Finding> findings = Driver(GetParam()).run();
    EXPECT_EQ(findings.size(), 0U) << "the table stands behind the last test";
    allFindings().insert(allFindings().end(), findings.begin(), findings.end());
}

std::vector<std::string> names() {
    std::vector<std::string> all;
    for (const Scenario& scenario : scenarios()) all.push_back(scenario.name);
    return all;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, TortureTest, testing::ValuesIn(names()),
                         [](const auto& name) { return name.param; });

}  // namespace
}  // namespace kel::http::torture

int main(int argc, char** argv) {
    kel::http::test::clearProxyEnvironment();
    testing::InitGoogleMock(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--all") == 0) kel::http::torture::stride = 1;
        if (std::strncmp(argv[i], "--stride=", 9) == 0) kel::http::torture::stride = std::atol(argv[i] + 9);
        if (std::strncmp(argv[i], "--patience=", 11) == 0) kel::http::torture::patience = std::atol(argv[i] + 11);
    }
    const int result = RUN_ALL_TESTS();
    const auto& findings = kel::http::torture::allFindings();
    if (!findings.empty()) std::cout << kel::http::torture::table(findings);
    return result;
}
