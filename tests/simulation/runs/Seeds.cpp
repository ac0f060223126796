// SPDX-License-Identifier: MIT
#include "runs/Seeds.h"

#include <poll.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>

#include "runs/Child.h"
#include "world/Random.h"

namespace kel::http::simulation {
namespace {

using Clock = std::chrono::steady_clock;

// Seeds that one process lives, one after the other.
struct Row {
    std::uint64_t first;
    std::uint64_t last;
    // What went wrong with it in a longer row, which began there.
    std::string suspicion;
    std::uint64_t behind = 0;
};

// A row that is being lived.
struct Living {
    Row row;
    std::unique_ptr<Child> child;
    VerdictReader reader;
    std::vector<Verdict> verdicts;
    Clock::time_point heard = Clock::now();
    bool readable = false;
    bool hangs = false;

    std::uint64_t seed() const { return row.first + verdicts.size(); }
    bool isWhole() const { return seed() > row.last; }
};

// Reads lines as long as there are some; each seed that has ended is a sign of life.
bool read(Living& living) {
    const bool goes_on = living.child->receive();
    for (std::string line; living.child->takeLine(line);) {
        if (!living.reader.take(line)) continue;
        living.verdicts.push_back(living.reader.release());
        living.heard = Clock::now();
    }
    return goes_on;
}

class Runner {
 public:
    explicit Runner(const SeedRun& run) : run_(run), next_(run.first) {}

    Tally all() {
        while (begin() || !living_.empty()) {
            await();
            for (auto one = living_.begin(); one != living_.end();) {
                if (goesOn(**one)) {
                    ++one;
                    continue;
                }
                const std::unique_ptr<Living> ended = std::move(*one);
                one = living_.erase(one);
                end(*ended);
            }
        }
        return std::move(tally_);
    }

 private:
    // Starts as many as may run. False: there is no row left.
    bool begin() {
        while (static_cast<std::int64_t>(living_.size()) < run_.jobs) {
            Row row{};
            if (!takeRow(row)) return false;
            living_.push_back(std::make_unique<Living>());
            living_.back()->row = row;
            living_.back()->child = std::make_unique<Child>([this, row](const Child::Tell& tell) {
                for (std::uint64_t seed = row.first; seed <= row.last; ++seed) {
                    for (const std::string& line : linesOf(run_.live(seed))) tell(line);
                }
            });
        }
        return true;
    }

    bool takeRow(Row& row) {
        if (!left_.empty()) {
            row = std::move(left_.front());
            left_.pop_front();
            return true;
        }
        if (next_ > run_.last || is_enough_) return false;
        row.first = next_;
        row.last = std::min(run_.last, next_ + run_.row - 1);
        next_ = row.last + 1;
        return true;
    }

    void await() {
        std::vector<pollfd> descriptors;
        for (const auto& one : living_) descriptors.push_back({one->child->descriptor(), POLLIN, 0});
        constexpr int often = 200;
        poll(descriptors.data(), descriptors.size(), often);
        for (std::size_t i = 0; i < descriptors.size(); ++i) living_[i]->readable = descriptors[i].revents != 0;
    }

    bool goesOn(Living& one) {
        if (one.readable) return read(one);
        if (Clock::now() - one.heard <= run_.patience) return true;
        one.hangs = true;
        one.child->kill();
        return false;
    }

    void end(Living& living) {
        std::string wrong = living.child->ending();
        if (living.hangs) wrong = "does not end within " + std::to_string(run_.patience.count()) + " s";
        if (living.row.first == living.row.last) {
            endSingle(living, wrong);
        } else {
            endRow(living, wrong);
        }
        is_enough_ = is_enough_ || (run_.enough && run_.enough(tally_));
    }

    // A single one is judged.
    void endSingle(Living& living, const std::string& wrong) {
        Finding finding{living.row.first, {}, {}};
        if (!living.verdicts.empty()) {
            finding.faults = living.verdicts.front().faults;
            count(living.row.first, living.verdicts.front());
        } else {
            ++tally_.seeds;
        }
        if (!wrong.empty()) {
            finding.faults.push_back(wrong);
            finding.errors = living.child->errors();
        }
        if (finding.faults.empty() && !living.row.suspicion.empty()) {
            finding.faults.push_back(living.row.suspicion + " (behind others only, from seed " +
                                     std::to_string(living.row.behind) + " on)");
        }
        if (!finding.faults.empty()) tell(std::move(finding));
    }

    // One of a row is counted if nothing was wrong with it, and lived again alone otherwise.
    void endRow(Living& living, const std::string& wrong) {
        const Row& row = living.row;
        const bool all_are_suspect = living.isWhole() && !wrong.empty();  // some seed has left memory behind, say
        for (std::uint64_t seed = row.first; seed < living.seed(); ++seed) {
            const Verdict& verdict = living.verdicts[static_cast<std::size_t>(seed - row.first)];
            if (!verdict.faults.empty()) {
                left_.push_back({seed, seed, verdict.faults.front(), row.first});
            } else if (all_are_suspect) {
                left_.push_back({seed, seed, seed == row.last ? wrong : "", row.first});
            } else {
                count(seed, verdict);
            }
        }
        if (living.isWhole()) return;
        left_.push_back({living.seed(), living.seed(), wrong.empty() ? "ends without a word" : wrong, row.first});
        if (living.seed() < row.last) left_.push_back({living.seed() + 1, row.last, {}, 0});
    }

    void count(std::uint64_t seed, const Verdict& verdict) {
        ++tally_.seeds;
        tally_.requests += verdict.requests;
        tally_.events += verdict.events;
        tally_.time += verdict.time;
        tally_.hash += Random(verdict.hash + Random(seed).next()).next();
        for (const std::string& state : verdict.states) ++tally_.states[state];
    }

    void tell(Finding finding) {
        if (run_.onFinding) run_.onFinding(finding);
        tally_.findings.push_back(std::move(finding));
    }

    const SeedRun& run_;
    std::uint64_t next_;
    bool is_enough_ = false;
    std::deque<Row> left_;
    std::vector<std::unique_ptr<Living>> living_;
    Tally tally_;
};

}  // namespace

Verdict liveSeed(std::uint64_t seed) {
    return judge(generate(seed));
}

Tally liveSeeds(const SeedRun& run) {
    return Runner(run).all();
}

Finding liveAlone(const Script& script, std::chrono::seconds patience) {
    SeedRun run;
    run.live = [&script](std::uint64_t) { return judge(script); };
    run.patience = patience;
    const Tally tally = liveSeeds(run);
    return tally.findings.empty() ? Finding() : tally.findings.front();
}

}  // namespace kel::http::simulation
