// SPDX-License-Identifier: MIT
#include "kel-http/legacy/HTTPEngine.h"

#include "kel-http/Deployment.h"
#include "kel-http/model/LogLine.h"
#include "kel-http/model/MemoryShortage.h"
#include "ko/mutex.h"

namespace {

// The executor's interface asks for a second argument, which says nothing here.
constexpr int reserved = 0;

// Too long for a std::string that takes no memory, so there is one for all completions. Never destroyed, as an engine
// with static storage is used until the very end.
const std::string& completion_name() {
    static const auto& name = *new std::string("handle_engine_callback");
    return name;
}

}  // namespace

struct HTTPEngine::Presence::State {
    ko::mutex mutex{"PresenceMutex"};
    HTTPEngine* engine KO_GUARDED_BY(mutex) = nullptr;
};

HTTPEngine::Presence::Presence(HTTPEngine& engine) : state_(std::make_shared<State>()) {
    ko::lock_guard lock(state_->mutex);
    state_->engine = &engine;
}

HTTPEngine::Presence::~Presence() {
    ko::lock_guard lock(state_->mutex);
    state_->engine = nullptr;
}

std::function<void()> HTTPEngine::Presence::guard(void (HTTPEngine::*step)()) const {
    return [state = state_, step] {
        ko::lock_guard lock(state->mutex);
        if (state->engine != nullptr) (state->engine->*step)();
    };
}

HTTPEngine::HTTPEngine(const std::string& name, Executor& executor)
    : Engine([this](const std::function<void()>& callback) { handle_engine_callback(callback); }),
      name_(name),
      logger_(*logging::getLogger("HTTPEngine", 0)),
      executor_(executor) {
    kel::http::writeLine(logger_, kel::http::log_level::info, "HTTPEngine: {} Curl Engine instantiated", name_);
    completion_name();
    executor_.post(presence_.guard(&HTTPEngine::set_http_proxy), reserved, "InitializeProxy");
}

HTTPEngine::~HTTPEngine() {
    stop();
}

void HTTPEngine::set_http_proxy() {
    kel::http::untilMemorySuffices([this] {
        proxy_url_ = "http://" KEL_HTTP_DEFAULT_PROXY_HOST ":80";
        proxy_user_.clear();
        proxy_password_.clear();
        proxy_mode_ = ProxyConfigMode::Off;
        setProxyConfig(proxy_mode_, proxy_url_, proxy_user_, proxy_password_);
    });
}

void HTTPEngine::handle_engine_callback(const std::function<void()>& callback) {
    kel::http::untilMemorySuffices([&] { executor_.post(callback, reserved, completion_name()); });
}
