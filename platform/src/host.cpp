// SPDX-License-Identifier: MIT
#include "ko/host.h"

#include <utility>

#include "development_identity.h"
#include "host_settings.h"
#include "ko/mutex.h"
#include "log_sink.h"

namespace ko {
namespace host {
namespace {

struct InEffect {
    ko::mutex mutex{"SettingsMutex"};
    std::shared_ptr<const Settings> settings KO_GUARDED_BY(mutex) = std::make_shared<const Settings>();
};

// Never destroyed: an engine with static storage asks until the very end.
InEffect& in_effect() {
    static auto& instance = *new InEffect;
    return instance;
}

void replace_settings(std::shared_ptr<const Settings> settings) {
    InEffect& current = in_effect();
    ko::lock_guard lock(current.mutex);
    current.settings.swap(settings);
}

}  // namespace

void configure(const Settings& settings) {
    if (settings.secure_store_directory.empty()) make_development_identity();
    replace_settings(std::make_shared<const Settings>(settings));
    logging::set_sink(settings.log_sink);
    logging::set_verbosities(settings.log_level, settings.log_levels);
}

std::shared_ptr<const Settings> current_settings() {
    InEffect& current = in_effect();
    ko::lock_guard lock(current.mutex);
    return current.settings;
}

}  // namespace host
}  // namespace ko
