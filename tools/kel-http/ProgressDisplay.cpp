// SPDX-License-Identifier: MIT
#include "ProgressDisplay.h"

#include <string>

#include "BarBlock.h"
#include "Files.h"
#include "Terminal.h"

namespace kel::http::tool {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Says when it is time again.
class Pace {
 public:
    Pace(milliseconds interval, bool starts_at_once)
        : interval_(interval), next_(steady_clock::now() + (starts_at_once ? milliseconds(0) : interval)) {}

    milliseconds interval() const { return interval_; }
    void make_time() { next_ = steady_clock::now(); }

    bool is_time() {
        const auto now = steady_clock::now();
        if (now < next_) return false;
        next_ = now + interval_;
        return true;
    }

 private:
    const milliseconds interval_;
    steady_clock::time_point next_;
};

class BarDisplay : public ProgressDisplay {
 public:
    std::optional<milliseconds> interval() const override { return pace_.interval(); }

    void show(const Bars& running) override {
        if (pace_.is_time()) block_.draw(running, terminal_size());
    }

    void finish(const ProgressBar& bar) override {
        block_.leave_above(bar, terminal_size());
        pace_.make_time();
    }

    void clear() override {
        block_.erase(terminal_size());
        pace_.make_time();
    }

    std::string name_of(const std::string& path) const override { return path.substr(path.rfind('/') + 1); }

 private:
    Pace pace_{milliseconds(200), true};
    BarBlock block_;
};

class LineDisplay : public ProgressDisplay {
 public:
    std::optional<milliseconds> interval() const override { return pace_.interval(); }

    // One a second for all of them: they take turns.
    void show(const Bars& running) override {
        if (running.empty() || !pace_.is_time()) return;
        const std::string line = running[turn_++ % running.size()]->text();
        if (line != last_line_) tell(line);
        last_line_ = line;
    }

    void finish(const ProgressBar& bar) override { tell(bar.summary()); }
    void clear() override {}
    std::string name_of(const std::string& path) const override { return path; }

 private:
    Pace pace_{milliseconds(1000), false};
    std::size_t turn_ = 0;
    std::string last_line_;
};

class NoDisplay : public ProgressDisplay {
 public:
    std::optional<milliseconds> interval() const override { return std::nullopt; }
    void show(const Bars&) override {}
    void finish(const ProgressBar&) override {}
    void clear() override {}
    std::string name_of(const std::string& path) const override { return path; }
};

}  // namespace

std::unique_ptr<ProgressDisplay> make_progress_display(const Options& options) {
    if (options.json) return std::make_unique<NoDisplay>();
    if (options.verbosity == 0 && is_terminal_for_bars()) return std::make_unique<BarDisplay>();
    return std::make_unique<LineDisplay>();
}

}  // namespace kel::http::tool
