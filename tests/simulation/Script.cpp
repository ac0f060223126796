// SPDX-License-Identifier: MIT
#include "Script.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

namespace kel::http::simulation {
namespace {

constexpr std::array<std::string_view, 3> connect_names = {"accept", "refuse", "silent"};
constexpr std::array<std::string_view, 3> framing_names = {"length", "chunked", "close"};
constexpr std::array<std::string_view, 4> cut_names = {"none", "close", "reset", "stall"};
constexpr std::array<std::string_view, 5> verb_names = {"GET", "POST", "PUT", "PATCH", "DELETE"};
constexpr std::array<std::string_view, 13> deed_names = {"cancel",        "pause",  "resume", "settle", "dropClient",
                                                         "destroyEngine", "rerun",  "queue",  "listen", "endExecutor",
                                                         "grow",          "shrink", "remove"};
constexpr std::array<std::string_view, 7> moment_names = {"time",     "outcome", "response", "error",
                                                          "progress", "header",  "data"};
constexpr std::array<std::string_view, 8> lie_names = {"none",  "longer",  "shorter", "two",
                                                       "chunk", "headers", "lines",   "garbage"};
constexpr std::array<std::string_view, 4> challenge_names = {"none", "basic", "digest", "both"};
constexpr std::array<std::string_view, 4> range_names = {"ignored", "right", "wrong", "refused"};
constexpr std::array<std::string_view, 3> proxy_mode_names = {"off", "manual", "list"};
constexpr std::array<std::string_view, 4> login_names = {"none", "basic", "any", "wrong"};
constexpr std::array<std::string_view, 6> trouble_names = {"mute",       "reset",     "noSockets",
                                                           "notReading", "wallClock", "moves"};

template <typename Value>
std::string textOf(const Value& value) {
    if constexpr (std::is_enum_v<Value>) {
        return std::string(nameOf(value));
    } else {
        return std::to_string(value);
    }
}

template <typename Value>
void read(Value& value, const std::string& text) {
    if constexpr (std::is_enum_v<Value>) {
        for (int number = 0; number < 16; ++number) {
            value = static_cast<Value>(number);
            if (nameOf(value) == text) return;
        }
        throw std::invalid_argument("no such value: " + text);
    } else {
        std::size_t end = 0;
        value = std::stoll(text, &end);
        if (end != text.size()) throw std::invalid_argument("no number: " + text);
    }
}

template <typename Record>
void printRecord(std::string& text, const Record& record) {
    Record shown = record;
    Record usual;
    std::vector<std::string> defaults;
    usual.visit([&](std::string_view, auto& value) { defaults.push_back(textOf(value)); });
    text += Record::word;
    std::size_t field = 0;
    shown.visit([&](std::string_view name, auto& value) {
        const std::string written = textOf(value);
        if (written != defaults[field++]) text.append(" ").append(name).append("=").append(written);
    });
    text += '\n';
}

template <typename Record>
Record readRecord(std::istringstream& words) {
    Record record;
    for (std::string word; words >> word;) {
        const auto equals = word.find('=');
        bool known = false;
        record.visit([&](std::string_view name, auto& value) {
            if (word.substr(0, equals) != name) return;
            read(value, word.substr(equals + 1));
            known = true;
        });
        if (!known) throw std::invalid_argument("no such field: " + word);
    }
    return record;
}

void readLine(Script& script, const std::string& line) {
    std::istringstream words(line);
    std::string word;
    if (!(words >> word)) return;
    if (word == OrderScript::word) {
        script.world = readRecord<OrderScript>(words);
    } else if (word == HostScript::word) {
        script.hosts.push_back(readRecord<HostScript>(words));
    } else if (word == ReplyScript::word) {
        script.replies.push_back(readRecord<ReplyScript>(words));
    } else if (word == RequestScript::word) {
        script.requests.push_back(readRecord<RequestScript>(words));
    } else if (word == ActionScript::word) {
        script.actions.push_back(readRecord<ActionScript>(words));
    } else if (word == ProxyScript::word) {
        script.proxies.push_back(readRecord<ProxyScript>(words));
    } else if (word == TroubleScript::word) {
        script.troubles.push_back(readRecord<TroubleScript>(words));
    } else {
        throw std::invalid_argument("no such record: " + word);
    }
}

template <typename Names, typename Value>
std::string_view nameIn(const Names& names, Value value) {
    const auto number = static_cast<std::size_t>(value);
    return number < names.size() ? names[number] : std::string_view("?");
}

// Whoever answers tells requests apart by their ids.
void requireDistinct(const std::vector<RequestScript>& requests) {
    std::set<std::int64_t> ids;
    for (const RequestScript& request : requests) {
        if (!ids.insert(request.id).second)
            throw std::invalid_argument("two requests with the id " + std::to_string(request.id));
    }
}

}  // namespace

std::string_view nameOf(Connect value) {
    return nameIn(connect_names, value);
}
std::string_view nameOf(Framing value) {
    return nameIn(framing_names, value);
}
std::string_view nameOf(Cut value) {
    return nameIn(cut_names, value);
}
std::string_view nameOf(Verb value) {
    return nameIn(verb_names, value);
}
std::string_view nameOf(Deed value) {
    return nameIn(deed_names, value);
}
std::string_view nameOf(Moment value) {
    return nameIn(moment_names, value);
}
std::string_view nameOf(Lie value) {
    return nameIn(lie_names, value);
}
std::string_view nameOf(Challenge value) {
    return nameIn(challenge_names, value);
}
std::string_view nameOf(Range value) {
    return nameIn(range_names, value);
}
std::string_view nameOf(ProxyMode value) {
    return nameIn(proxy_mode_names, value);
}
std::string_view nameOf(Login value) {
    return nameIn(login_names, value);
}
std::string_view nameOf(Trouble value) {
    return nameIn(trouble_names, value);
}

HostScript Script::host(std::int64_t id) const {
    for (const HostScript& one : hosts) {
        if (one.id == id) return one;
    }
    HostScript usual;
    usual.id = id;
    return usual;
}

ProxyScript Script::proxy(std::int64_t id) const {
    for (const ProxyScript& one : proxies) {
        if (one.id == id) return one;
    }
    ProxyScript usual;
    usual.id = id;
    return usual;
}

ReplyScript Script::reply(std::int64_t exchange, std::size_t arrival) const {
    ReplyScript last;
    last.exchange = exchange;
    std::size_t number = 0;
    for (const ReplyScript& one : replies) {
        if (one.exchange != exchange) continue;
        last = one;
        if (number++ == arrival) break;
    }
    return last;
}

const RequestScript* Script::request(std::int64_t id) const {
    const auto found =
        std::find_if(requests.begin(), requests.end(), [id](const RequestScript& one) { return one.id == id; });
    return found == requests.end() ? nullptr : &*found;
}

std::string print(const Script& script) {
    std::string text;
    printRecord(text, script.world);
    for (const auto& record : script.hosts) printRecord(text, record);
    for (const auto& record : script.replies) printRecord(text, record);
    for (const auto& record : script.requests) printRecord(text, record);
    for (const auto& record : script.actions) printRecord(text, record);
    for (const auto& record : script.proxies) printRecord(text, record);
    for (const auto& record : script.troubles) printRecord(text, record);
    return text;
}

Script parse(const std::string& text) {
    Script script;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        try {
            readLine(script, line);
        } catch (const std::logic_error& error) {
            throw std::invalid_argument("'" + line + "': " + error.what());
        }
    }
    requireDistinct(script.requests);
    return script;
}

}  // namespace kel::http::simulation
