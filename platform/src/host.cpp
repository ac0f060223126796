// SPDX-License-Identifier: MIT
#include "ko/host.h"

#include <atomic>
#include <deque>
#include <utility>

#include "host_settings.h"
#include "ko/mutex.h"
#include "log_sink.h"

namespace ko {
namespace host {
namespace {

// Settings are read often and replaced hardly ever, so all of them stay: whoever reads needs neither a lock nor a copy.
// Never destroyed: an engine with static storage asks until the very end.
struct History {
    ko::mutex mutex{"SettingsMutex"};
    std::deque<Settings> settings KO_GUARDED_BY(mutex) = std::deque<Settings>(1);
    std::atomic<const Settings*> current{&settings.back()};
};

History& history() {
    static auto& instance = *new History;
    return instance;
}

// Without the sink, which is to be released when it is replaced.
void replace_settings(Settings settings) {
    settings.log_sink = nullptr;
    History& known = history();
    ko::lock_guard lock(known.mutex);
    known.settings.push_back(std::move(settings));
    known.current = &known.settings.back();
}

}  // namespace

void configure(const Settings& settings) {
    replace_settings(settings);
    logging::set_sink(settings.log_sink);
    logging::set_verbosities(settings.log_level, settings.log_levels);
}

const Settings& current_settings() {
    return *history().current;
}

}  // namespace host
}  // namespace ko
