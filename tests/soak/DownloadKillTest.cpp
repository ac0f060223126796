// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <random>

#include "fixture/ClientTest.h"
#include "support/Deadline.h"
#include "support/Emulator.h"
#include "support/Files.h"
#include "support/Instruments.h"
#include "support/NginxServer.h"
#include "support/ServerProcess.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

// Sanitizers make each process slow, and have nothing to say about one that is killed.
const unsigned Kills = underSanitizer() ? 30 : 200;

std::string pattern(std::size_t size, unsigned row) {
    std::string bytes(size, '\0');
    for (std::size_t n = 0; n < size; ++n) bytes[n] = static_cast<char>((n * 7 + n / row) & 0xFFU);
    return bytes;
}

// A process that downloads, killed at any moment of its life.
class DownloadKillTest : public testing::Test {
 protected:
    DownloadKillTest() {
        std::cout << "seed " << seed_ << '\n';
        nginx_.writeFile("f", whole_);
    }

    // Runs it for no longer than `life`; whether it has ended by itself.
    bool run(nanoseconds life, const std::vector<std::string>& options) {
        ServerProcess::Program program;
        program.words = commandOf("download_process");
        program.words.insert(program.words.end(), {nginx_.url("/f"), directory_.path()});
        program.words.insert(program.words.end(), options.begin(), options.end());
        for (char** variable = environ; *variable != nullptr; ++variable) program.environment.emplace_back(*variable);
        program.log_file = logs_.path("log");
        program.stop_signal = SIGKILL;
        ServerProcess process;
        process.start(program);
        const bool ended = process.awaitEnd(life);
        process.stop();
        return ended;
    }

    // Kills it at a moment of a life like those that were left undisturbed.
    void runAndKill(const std::vector<std::string>& options) {
        std::uniform_int_distribution<nanoseconds::rep> moment(0, life_.count() * 11 / 10);
        const auto begin = steady_clock::now();
        const bool ended = run(nanoseconds(moment(random_)), options);
        // A busy machine may make lives longer: then they must not all end early.
        life_ = ended ? (life_ + (steady_clock::now() - begin)) / 2 : life_ * 102 / 100;
        killed_ += ended ? 0U : 1U;
    }

    void measure(const std::vector<std::string>& options) {
        const auto begin = steady_clock::now();
        ASSERT_TRUE(run(Deadline, options)) << readWholeFile(logs_.path("log"));
        life_ = steady_clock::now() - begin;
    }

    void putOldFile() const { writeWholeFile(target_, old_); }

    bool isBeginning(const std::string& bytes) const {
        return bytes.size() <= whole_.size() && whole_.compare(0, bytes.size(), bytes) == 0;
    }

    // What killed processes leave beside the target is the beginning of the new file under a temporary name.
    void checkAndRemoveParts() {
        for (const std::string& name : directory_.names()) {
            if (name == "f") continue;
            EXPECT_THAT(name, testing::MatchesRegex("f\\.downloading-[0123456789abdcef]{8}"));
            EXPECT_TRUE(isBeginning(readWholeFile(directory_.path(name)))) << name;
            fs::remove(directory_.path(name));
            ++parts_;
        }
    }

    const unsigned seed_ = std::random_device()();
    std::mt19937 random_{seed_};
    const std::string old_ = pattern(700000, 251);
    const std::string whole_ = pattern(2 << 20, 241);
    NginxServer nginx_;
    const TemporaryDirectory directory_;
    const TemporaryDirectory logs_;
    const std::string target_ = directory_.path("f");
    nanoseconds life_{};
    unsigned killed_ = 0;
    unsigned parts_ = 0;
};

TEST_F(DownloadKillTest, TheTargetIsTheOldFileOrTheWholeNewOne) {
    putOldFile();
    measure({});
    ASSERT_TRUE(readWholeFile(target_) == whole_);

    unsigned replaced = 0;
    // Until some were killed inside the file, and some behind it.
    while (killed_ < Kills || replaced == 0 || parts_ == 0) {
        putOldFile();
        runAndKill({});
        const std::string bytes = readWholeFile(target_);
        ASSERT_TRUE(bytes == old_ || bytes == whole_) << "seed " << seed_ << ", " << bytes.size() << " bytes";
        replaced += bytes == whole_ ? 1U : 0U;
        checkAndRemoveParts();
    }
    std::cout << replaced << " replaced, " << parts_ << " parts\n";
}

TEST_F(DownloadKillTest, AResumedTargetIsABeginningOfTheWholeFileAndEndsAsThat) {
    measure({"resume"});
    ASSERT_TRUE(readWholeFile(target_) == whole_);

    unsigned begun = 0;
    unsigned completed = 0;
    bool was_complete = true;
    while (killed_ < Kills / 2 || completed == 0 || begun == 0) {
        runAndKill({"resume"});
        EXPECT_LE(directory_.names().size(), 1U);
        const std::string bytes = fs::exists(target_) ? readWholeFile(target_) : std::string();
        ASSERT_TRUE(isBeginning(bytes)) << "seed " << seed_ << ", " << bytes.size() << " bytes";
        const bool is_complete = bytes.size() == whole_.size();
        completed += is_complete ? 1U : 0U;
        begun += !is_complete && !bytes.empty() ? 1U : 0U;
        // A complete one is asked for once more, as by somebody who does not know of it.
        if (is_complete && was_complete) fs::remove(target_);
        was_complete = is_complete && !was_complete;
    }
    std::cout << completed << " completed, " << begun << " begun\n";

    run(Deadline, {"resume"});
    EXPECT_TRUE(readWholeFile(target_) == whole_);
}

}  // namespace
}  // namespace kel::http::test
