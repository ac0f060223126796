// SPDX-License-Identifier: MIT
#include "logging/Logger.h"

#include <map>
#include <memory>
#include <utility>

#include "ko/mutex.h"
#include "log_sink.h"

namespace logging {
namespace {

struct Registry {
    int verbosity_of(const std::string& name) const KO_REQUIRES(mutex) {
        const auto found = levels.find(name);
        return found == levels.end() ? level : found->second;
    }

    ko::mutex mutex{"LoggersMutex"};
    // The names in the keys are the loggers' own, so that looking a logger up costs no memory.
    std::map<std::pair<std::string_view, int>, Logger*> loggers KO_GUARDED_BY(mutex);
    int level KO_GUARDED_BY(mutex) = 0;
    std::map<std::string, int> levels KO_GUARDED_BY(mutex);
};

// Never destroyed, and its loggers neither: objects with static storage log from their destructors.
Registry& registry() {
    static auto& instance = *new Registry;
    return instance;
}

}  // namespace

void Logger::write(int level, std::string_view text) noexcept {
    if (level > verbosity()) return;
    send_to_sink({name_, level, text});
}

Logger* getLogger(const char* name, int group) {
    Registry& known = registry();
    ko::lock_guard lock(known.mutex);
    const auto found = known.loggers.find({name, group});
    if (found != known.loggers.end()) return found->second;
    std::unique_ptr<Logger> made(new Logger(name, known.verbosity_of(name)));
    known.loggers.emplace(std::make_pair(std::string_view(made->name()), group), made.get());
    return made.release();
}

void set_verbosities(int level, const std::map<std::string, int>& levels) {
    Registry& known = registry();
    ko::lock_guard lock(known.mutex);
    known.level = level;
    known.levels = levels;
    for (const auto& entry : known.loggers) {
        Logger& logger = *entry.second;
        logger.set_verbosity(known.verbosity_of(logger.name()));
    }
}

}  // namespace logging
