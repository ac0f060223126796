// SPDX-License-Identifier: MIT
#include "curl/Interposed.h"

#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

#include "support/Deadline.h"

// Only so can it be defined.
#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_share_setopt

namespace kel::http::test {
namespace {

struct Answer {
    CURLcode result;
    curl_off_t value;
};

struct State {
    EventLog calls;
    std::atomic<std::size_t> selects{0};
    std::atomic<int> most_selected{0};
    std::atomic<int> select_failures{0};
    std::atomic<int> select_error{0};
    std::atomic<bool> eventfd_fails{false};
    std::atomic<bool> epoll_fails{false};
    std::atomic<bool> write_fails{false};
    std::atomic<bool> read_fails{false};
    std::atomic<std::size_t> send_limit{0};
    std::atomic<int> sends_to_reset{0};
    std::atomic<int> reset_socket{-1};
    std::atomic<int> lacking{-1};

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> options;
    std::vector<Interposed::RawLine> raw_lines;
    // 0: it has not been given away. libcurl makes some for itself.
    std::map<const void*, std::size_t> living_handles;
    std::size_t handles_used = 0;
    std::vector<std::size_t> handles;
    std::map<CURLINFO, Answer> answers;
    std::set<std::string> failing;
    std::optional<std::vector<std::string>> cookie_lines;
    std::optional<long> timer;
    std::function<void()> before_perform;
    bool names_are_held = false;
    bool names_are_ours = false;
};

// Never destroyed: threads may call to the very end.
State& state() {
    static auto* const instance = new State;
    return *instance;
}

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string nameOf(CURLoption option) {
#define KEL_NAME(name) \
    case name:         \
        return #name;
    switch (option) {
        KEL_NAME(CURLOPT_CAINFO)
        KEL_NAME(CURLOPT_CAPATH)
        KEL_NAME(CURLOPT_COOKIEFILE)
        KEL_NAME(CURLOPT_COOKIEJAR)
        KEL_NAME(CURLOPT_COOKIELIST)
        KEL_NAME(CURLOPT_COOKIESESSION)
        KEL_NAME(CURLOPT_COPYPOSTFIELDS)
        KEL_NAME(CURLOPT_CUSTOMREQUEST)
        KEL_NAME(CURLOPT_DEBUGDATA)
        KEL_NAME(CURLOPT_DEBUGFUNCTION)
        KEL_NAME(CURLOPT_DEFAULT_PROTOCOL)
        KEL_NAME(CURLOPT_DNS_CACHE_TIMEOUT)
        KEL_NAME(CURLOPT_ERRORBUFFER)
        KEL_NAME(CURLOPT_FOLLOWLOCATION)
        KEL_NAME(CURLOPT_FORBID_REUSE)
        KEL_NAME(CURLOPT_FRESH_CONNECT)
        KEL_NAME(CURLOPT_HEADERDATA)
        KEL_NAME(CURLOPT_HEADERFUNCTION)
        KEL_NAME(CURLOPT_HTTPAUTH)
        KEL_NAME(CURLOPT_HTTPHEADER)
        KEL_NAME(CURLOPT_HTTPPROXYTUNNEL)
        KEL_NAME(CURLOPT_HTTP_VERSION)
        KEL_NAME(CURLOPT_INFILESIZE)
        KEL_NAME(CURLOPT_IPRESOLVE)
        KEL_NAME(CURLOPT_MAXFILESIZE)
        KEL_NAME(CURLOPT_MAXREDIRS)
        KEL_NAME(CURLOPT_MAX_RECV_SPEED_LARGE)
        KEL_NAME(CURLOPT_MIMEPOST)
        KEL_NAME(CURLOPT_NOPROGRESS)
        KEL_NAME(CURLOPT_NOPROXY)
        KEL_NAME(CURLOPT_NOSIGNAL)
        KEL_NAME(CURLOPT_PASSWORD)
        KEL_NAME(CURLOPT_POSTFIELDSIZE)
        KEL_NAME(CURLOPT_PROXY)
        KEL_NAME(CURLOPT_PROXYAUTH)
        KEL_NAME(CURLOPT_PROXYUSERPWD)
        KEL_NAME(CURLOPT_READDATA)
        KEL_NAME(CURLOPT_READFUNCTION)
        KEL_NAME(CURLOPT_RESUME_FROM)
        KEL_NAME(CURLOPT_SEEKDATA)
        KEL_NAME(CURLOPT_SEEKFUNCTION)
        KEL_NAME(CURLOPT_SHARE)
        KEL_NAME(CURLOPT_SSLCERT)
        KEL_NAME(CURLOPT_SSLCERTTYPE)
        KEL_NAME(CURLOPT_SSLKEY)
        KEL_NAME(CURLOPT_SSLKEYTYPE)
        KEL_NAME(CURLOPT_SSLVERSION)
        KEL_NAME(CURLOPT_SSL_CTX_DATA)
        KEL_NAME(CURLOPT_SSL_CTX_FUNCTION)
        KEL_NAME(CURLOPT_SSL_SESSIONID_CACHE)
        KEL_NAME(CURLOPT_SSL_VERIFYHOST)
        KEL_NAME(CURLOPT_SSL_VERIFYPEER)
        KEL_NAME(CURLOPT_TIMEOUT_MS)
        KEL_NAME(CURLOPT_UPLOAD)
        KEL_NAME(CURLOPT_URL)
        KEL_NAME(CURLOPT_USERNAME)
        KEL_NAME(CURLOPT_VERBOSE)
        KEL_NAME(CURLOPT_WRITEDATA)
        KEL_NAME(CURLOPT_WRITEFUNCTION)
        KEL_NAME(CURLOPT_XFERINFODATA)
        KEL_NAME(CURLOPT_XFERINFOFUNCTION)
        default:
            // Some have another name in newer releases.
            return "CURLOPT_" + std::to_string(static_cast<int>(option));
    }
#undef KEL_NAME
}

bool isText(CURLoption option) {
    constexpr std::array<CURLoption, 17> texts = {
        CURLOPT_CAINFO,        CURLOPT_CAPATH,           CURLOPT_COOKIEFILE,  CURLOPT_COOKIEJAR, CURLOPT_COOKIELIST,
        CURLOPT_CUSTOMREQUEST, CURLOPT_DEFAULT_PROTOCOL, CURLOPT_NOPROXY,     CURLOPT_PASSWORD,  CURLOPT_PROXY,
        CURLOPT_PROXYUSERPWD,  CURLOPT_SSLCERT,          CURLOPT_SSLCERTTYPE, CURLOPT_SSLKEY,    CURLOPT_SSLKEYTYPE,
        CURLOPT_URL,           CURLOPT_USERNAME};
    return std::find(texts.begin(), texts.end(), option) != texts.end();
}

std::string joined(const curl_slist* line) {
    std::string all = line->data;
    while ((line = line->next) != nullptr) all.append("|").append(line->data);
    return all;
}

std::string shown(CURLoption option, const void* pointer, const void* easy) {
    if (pointer == nullptr) return "null";
    if (isText(option)) return static_cast<const char*>(pointer);
    if (option == CURLOPT_HTTPHEADER) return joined(static_cast<const curl_slist*>(pointer));
    return pointer == easy ? "easy" : "set";
}

void note(const std::string& name, const std::string& value) {
    const std::lock_guard lock(state().mutex);
    state().options.push_back(name + '=' + value);
}

void note(CURLoption option, const std::string& value) {
    note(nameOf(option), value);
}

bool fails(const std::string& call) {
    const std::lock_guard lock(state().mutex);
    return state().failing.count(call) != 0;
}

void reset() {
    State& now = state();
    now.calls.clear();
    now.selects = 0;
    now.most_selected = 0;
    now.select_failures = 0;
    now.eventfd_fails = false;
    now.epoll_fails = false;
    now.write_fails = false;
    now.read_fails = false;
    now.send_limit = 0;
    now.sends_to_reset = 0;
    now.reset_socket = -1;
    now.lacking = -1;
    const std::lock_guard lock(now.mutex);
    now.options.clear();
    now.raw_lines.clear();
    now.handles_used = 0;
    now.living_handles.clear();
    now.handles.clear();
    now.answers.clear();
    now.failing.clear();
    now.cookie_lines.reset();
    now.timer.reset();
    now.before_perform = nullptr;
    now.names_are_held = false;
    now.names_are_ours = false;
    now.changed.notify_all();
}

}  // namespace

Interposed::Interposed() {
    reset();
}

Interposed::~Interposed() {
    reset();
}

const EventLog& Interposed::calls() const {
    return state().calls;
}

std::size_t Interposed::selects() const {
    return state().selects;
}

int Interposed::mostSelected() const {
    return state().most_selected;
}

std::vector<std::string> Interposed::options() const {
    const std::lock_guard lock(state().mutex);
    return state().options;
}

void Interposed::forgetOptions() {
    const std::lock_guard lock(state().mutex);
    state().options.clear();
}

std::vector<std::size_t> Interposed::handles() const {
    const std::lock_guard lock(state().mutex);
    return state().handles;
}

std::size_t Interposed::livingHandles() const {
    const std::lock_guard lock(state().mutex);
    const auto& all = state().living_handles;
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const auto& handle) { return handle.second != 0; }));
}

std::vector<Interposed::RawLine> Interposed::rawLines() const {
    const std::lock_guard lock(state().mutex);
    return state().raw_lines;
}

void Interposed::failSelects(int count, int error) {
    state().select_error = error;
    state().select_failures = count;
}

void Interposed::setTimer(std::optional<long> milliseconds) {
    const std::lock_guard lock(state().mutex);
    state().timer = milliseconds;
}

void Interposed::beforePerform(std::function<void()> act) {
    const std::lock_guard lock(state().mutex);
    state().before_perform = std::move(act);
}

void Interposed::failEpoll() {
    state().epoll_fails = true;
}

void Interposed::failEventfds() {
    state().eventfd_fails = true;
}

void Interposed::failEventfdWrites(bool fail) {
    state().write_fails = fail;
}

void Interposed::failEventfdReads(bool fail) {
    state().read_fails = fail;
}

void Interposed::answerInfo(CURLINFO info, CURLcode result, curl_off_t value) {
    const std::lock_guard lock(state().mutex);
    state().answers[info] = {result, value};
}

void Interposed::answerCookieList(const std::vector<std::string>& lines) {
    const std::lock_guard lock(state().mutex);
    state().cookie_lines = lines;
}

void Interposed::fail(const std::string& call) {
    const std::lock_guard lock(state().mutex);
    state().failing.insert(call);
}

void Interposed::lack(CURLoption option) {
    state().lacking = option;
}

void Interposed::holdNames() {
    const std::lock_guard lock(state().mutex);
    state().names_are_held = true;
    state().names_are_ours = true;
}

void Interposed::releaseNames() {
    const std::lock_guard lock(state().mutex);
    state().names_are_held = false;
    state().changed.notify_all();
}

void Interposed::resetAtSend(int number) {
    state().sends_to_reset = number;
}

void Interposed::limitSends(std::size_t bytes) {
    state().send_limit = bytes;
}

}  // namespace kel::http::test

using kel::http::test::fails;
using kel::http::test::next;
using kel::http::test::state;

extern "C" {

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    static auto* const real = next<int(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
    ++state().selects;
    if (count > state().most_selected) state().most_selected = count;  // the engine's thread alone gets here
    if (timeout != nullptr) {
        state().calls.add("select " + std::to_string(timeout->tv_sec) + ' ' + std::to_string(timeout->tv_usec));
    }
    if (state().select_failures > 0) {
        --state().select_failures;
        for (fd_set* set : {readable, writable, exceptional}) {
            for (int descriptor = 0; descriptor < count; ++descriptor) FD_SET(descriptor, set);
        }
        errno = state().select_error;
        return -1;
    }
    return real(count, readable, writable, exceptional, timeout);
}

CURLMcode curl_multi_wait(CURLM* multi, curl_waitfd* extra, unsigned int count, int timeout_ms, int* ready) {
    static auto* const real = next<CURLMcode(CURLM*, curl_waitfd*, unsigned int, int, int*)>("curl_multi_wait");
    state().calls.add("wait " + std::to_string(timeout_ms));
    return real(multi, extra, count, timeout_ms, ready);
}

CURLMcode curl_multi_perform(CURLM* multi, int* running) {
    static auto* const real = next<CURLMcode(CURLM*, int*)>("curl_multi_perform");
    std::function<void()> act;
    {
        const std::lock_guard lock(state().mutex);
        act.swap(state().before_perform);
    }
    if (act) act();
    return real(multi, running);
}

CURLMcode curl_multi_timeout(CURLM* multi, long* milliseconds) {
    static auto* const real = next<CURLMcode(CURLM*, long*)>("curl_multi_timeout");
    const std::lock_guard lock(state().mutex);
    if (!state().timer) return real(multi, milliseconds);
    *milliseconds = *state().timer;
    return CURLM_OK;
}

int epoll_ctl(int epoll, int how, int descriptor, epoll_event* event) noexcept {
    static auto* const real = next<int(int, int, int, epoll_event*)>("epoll_ctl");
    if (!state().epoll_fails) return real(epoll, how, descriptor, event);
    errno = ENOSPC;
    return -1;
}

int eventfd(unsigned int count, int flags) noexcept {
    static auto* const real = next<int(unsigned int, int)>("eventfd");
    return state().eventfd_fails ? -1 : real(count, flags);
}

int eventfd_write(int descriptor, eventfd_t value) {
    static auto* const real = next<int(int, eventfd_t)>("eventfd_write");
    state().calls.add("eventfd_write");
    const int result = real(descriptor, value);
    return state().write_fails ? -1 : result;
}

int eventfd_read(int descriptor, eventfd_t* value) {
    static auto* const real = next<int(int, eventfd_t*)>("eventfd_read");
    state().calls.add("eventfd_read");
    const int result = real(descriptor, value);
    return state().read_fails ? -1 : result;
}

void tovanlog_write(int severity, int channel, const char* text, std::size_t length) {
    static auto* const real = next<void(int, int, const char*, std::size_t)>("tovanlog_write");
    {
        const std::lock_guard lock(state().mutex);
        state().raw_lines.push_back({severity, channel, text, length});
    }
    real(severity, channel, text, length);
}

CURLcode curl_easy_setopt(CURL* easy, CURLoption option, ...) {
    static auto* const real = next<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
    std::va_list arguments;
    va_start(arguments, option);
    CURLcode result = CURLE_OK;
    if (fails(kel::http::test::nameOf(option))) {
        result = CURLE_OUT_OF_MEMORY;
    } else if (option == state().lacking) {
        result = CURLE_UNKNOWN_OPTION;
    } else if (option >= CURLOPTTYPE_OFF_T) {
        const auto number = va_arg(arguments, curl_off_t);
        kel::http::test::note(option, std::to_string(number));
        result = real(easy, option, number);
    } else if (option >= CURLOPTTYPE_OBJECTPOINT) {
        auto* const pointer = va_arg(arguments, void*);
        kel::http::test::note(option, kel::http::test::shown(option, pointer, easy));
        result = real(easy, option, pointer);
    } else {
        const auto number = va_arg(arguments, long);
        kel::http::test::note(option, std::to_string(number));
        result = real(easy, option, number);
    }
    va_end(arguments);
    return result;
}

CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...) {
    static auto* const real = next<CURLSHcode(CURLSH*, CURLSHoption, ...)>("curl_share_setopt");
    std::va_list arguments;
    va_start(arguments, option);
    CURLSHcode result = CURLSHE_OK;
    if (option == CURLSHOPT_SHARE) {
        const int kind = va_arg(arguments, int);
        kel::http::test::note("CURLSHOPT_SHARE", std::to_string(kind));
        result = real(share, option, kind);
    } else {
        auto* const pointer = va_arg(arguments, void*);
        kel::http::test::note("CURLSHOPT_" + std::to_string(static_cast<int>(option)), "set");
        result = real(share, option, pointer);
    }
    va_end(arguments);
    return result;
}

CURLcode curl_easy_getinfo(CURL* easy, CURLINFO info, ...) {
    static auto* const real = next<CURLcode(CURL*, CURLINFO, ...)>("curl_easy_getinfo");
    std::va_list arguments;
    va_start(arguments, info);
    auto* const target = va_arg(arguments, void*);
    va_end(arguments);
    {
        const std::lock_guard lock(state().mutex);
        if (info == CURLINFO_COOKIELIST && state().cookie_lines) {
            curl_slist* list = nullptr;
            static auto* const append = next<curl_slist*(curl_slist*, const char*)>("curl_slist_append");
            for (const std::string& line : *state().cookie_lines) list = append(list, line.c_str());
            *static_cast<curl_slist**>(target) = list;
            return CURLE_OK;
        }
        const auto found = state().answers.find(info);
        if (found != state().answers.end()) {
            const auto& answer = found->second;
            if (answer.result == CURLE_OK && (info & CURLINFO_TYPEMASK) == CURLINFO_LONG) {
                *static_cast<long*>(target) = static_cast<long>(answer.value);
            } else if (answer.result == CURLE_OK && (info & CURLINFO_TYPEMASK) == CURLINFO_STRING) {
                *static_cast<const char**>(target) = nullptr;
            } else if (answer.result == CURLE_OK) {
                *static_cast<curl_off_t*>(target) = answer.value;
            }
            return answer.result;
        }
    }
    return real(easy, info, target);
}

curl_mime* curl_mime_init(CURL* easy) {
    static auto* const real = next<curl_mime*(CURL*)>("curl_mime_init");
    return fails("curl_mime_init") ? nullptr : real(easy);
}

curl_mimepart* curl_mime_addpart(curl_mime* mime) {
    static auto* const real = next<curl_mimepart*(curl_mime*)>("curl_mime_addpart");
    return fails("curl_mime_addpart") ? nullptr : real(mime);
}

CURLcode curl_mime_name(curl_mimepart* part, const char* name) {
    static auto* const real = next<CURLcode(curl_mimepart*, const char*)>("curl_mime_name");
    return fails("curl_mime_name") ? CURLE_OUT_OF_MEMORY : real(part, name);
}

CURLcode curl_mime_filename(curl_mimepart* part, const char* name) {
    static auto* const real = next<CURLcode(curl_mimepart*, const char*)>("curl_mime_filename");
    return fails("curl_mime_filename") ? CURLE_OUT_OF_MEMORY : real(part, name);
}

CURLcode curl_mime_type(curl_mimepart* part, const char* type) {
    static auto* const real = next<CURLcode(curl_mimepart*, const char*)>("curl_mime_type");
    return fails("curl_mime_type") ? CURLE_OUT_OF_MEMORY : real(part, type);
}

CURLcode curl_mime_data(curl_mimepart* part, const char* data, std::size_t size) {
    static auto* const real = next<CURLcode(curl_mimepart*, const char*, std::size_t)>("curl_mime_data");
    return fails("curl_mime_data") ? CURLE_OUT_OF_MEMORY : real(part, data, size);
}

CURLcode curl_mime_data_cb(curl_mimepart* part, curl_off_t size, curl_read_callback read, curl_seek_callback seek,
                           curl_free_callback release, void* argument) {
    static auto* const real =
        next<CURLcode(curl_mimepart*, curl_off_t, curl_read_callback, curl_seek_callback, curl_free_callback, void*)>(
            "curl_mime_data_cb");
    return fails("curl_mime_data_cb") ? CURLE_OUT_OF_MEMORY : real(part, size, read, seek, release, argument);
}

curl_slist* curl_slist_append(curl_slist* list, const char* line) {
    static auto* const real = next<curl_slist*(curl_slist*, const char*)>("curl_slist_append");
    return fails("curl_slist_append") ? nullptr : real(list, line);
}

CURLM* curl_multi_init() {
    static auto* const real = next<CURLM*()>("curl_multi_init");
    return fails("curl_multi_init") ? nullptr : real();
}

CURLSH* curl_share_init() {
    static auto* const real = next<CURLSH*()>("curl_share_init");
    return fails("curl_share_init") ? nullptr : real();
}

CURLcode curl_global_init(long flags) {
    static auto* const real = next<CURLcode(long)>("curl_global_init");
    return fails("curl_global_init") ? CURLE_FAILED_INIT : real(flags);
}

CURL* curl_easy_init() {
    static auto* const real = next<CURL*()>("curl_easy_init");
    if (fails("curl_easy_init")) return nullptr;
    CURL* const easy = real();
    const std::lock_guard lock(state().mutex);
    state().living_handles[easy] = 0;
    return easy;
}

void curl_easy_cleanup(CURL* easy) {
    static auto* const real = next<void(CURL*)>("curl_easy_cleanup");
    {
        const std::lock_guard lock(state().mutex);
        state().living_handles.erase(easy);
    }
    real(easy);
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy) {
    static auto* const real = next<CURLMcode(CURLM*, CURL*)>("curl_multi_add_handle");
    if (fails("curl_multi_add_handle")) return CURLM_OUT_OF_MEMORY;
    {
        const std::lock_guard lock(state().mutex);
        std::size_t& number = state().living_handles[easy];
        if (number == 0) number = ++state().handles_used;
        state().handles.push_back(number);
    }
    return real(multi, easy);
}

int pthread_attr_setstacksize(pthread_attr_t* attributes, std::size_t bytes) noexcept {
    static auto* const real = next<int(pthread_attr_t*, std::size_t)>("pthread_attr_setstacksize");
    state().calls.add("stack " + std::to_string(bytes));
    return real(attributes, bytes);
}

int pthread_attr_setschedpolicy(pthread_attr_t* attributes, int policy) noexcept {
    static auto* const real = next<int(pthread_attr_t*, int)>("pthread_attr_setschedpolicy");
    state().calls.add("policy " + std::to_string(policy));
    return real(attributes, policy);
}

int pthread_attr_setschedparam(pthread_attr_t* attributes, const sched_param* parameters) noexcept {
    static auto* const real = next<int(pthread_attr_t*, const sched_param*)>("pthread_attr_setschedparam");
    state().calls.add("priority " + std::to_string(parameters->sched_priority));
    return real(attributes, parameters);
}

int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
    static auto* const real = next<int(const char*, const char*, const addrinfo*, addrinfo**)>("getaddrinfo");
    std::unique_lock lock(state().mutex);
    if (!state().names_are_ours) {
        lock.unlock();
        return real(name, service, hints, result);
    }
    state().calls.add(std::string("resolve ") + name);
    kel::http::test::awaitUntil(state().changed, lock, "releaseNames()", [] { return !state().names_are_held; });
    lock.unlock();
    return real("127.0.0.1", service, hints, result);
}

ssize_t send(int socket, const void* bytes, std::size_t count, int flags) {
    static auto* const real = next<ssize_t(int, const void*, std::size_t, int)>("send");
    if (state().sends_to_reset > 0 && --state().sends_to_reset == 0) {
        state().reset_socket = socket;
        shutdown(socket, SHUT_RD);  // there is something to read: the bad news
        errno = EAGAIN;
        return -1;
    }
    const std::size_t limit = state().send_limit;
    return real(socket, bytes, limit == 0 ? count : std::min(count, limit), flags);
}

ssize_t recv(int socket, void* buffer, std::size_t count, int flags) {
    static auto* const real = next<ssize_t(int, void*, std::size_t, int)>("recv");
    if (socket == state().reset_socket && (flags & MSG_PEEK) == 0) {
        state().reset_socket = -1;
        errno = ECONNRESET;
        return -1;
    }
    return real(socket, buffer, count, flags);
}
}
