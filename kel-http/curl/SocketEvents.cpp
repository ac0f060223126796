// SPDX-License-Identifier: MIT

// The devices' releases know no other name for curl_multi_socket_all().
#define CURL_DISABLE_DEPRECATION

#include "kel-http/curl/SocketEvents.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <new>
#include <utility>

namespace kel::http {
namespace {

// What a socket is wanted for, as libcurl has it; two bits further what epoll watches; and that its end will be told.
constexpr std::uint32_t wanted_in = CURL_POLL_IN;
constexpr std::uint32_t wanted_out = CURL_POLL_OUT;
constexpr std::uint32_t wanted_any = wanted_in | wanted_out;
constexpr std::uint32_t watched = 2;
constexpr std::uint32_t told = 16;

constexpr std::size_t events_at_once = 64;

std::uint8_t withWanted(std::uint32_t state, std::uint32_t wanted) {
    return static_cast<std::uint8_t>((state & ~wanted_any) | wanted);
}

std::uint8_t withWatched(std::uint32_t state, std::uint32_t wanted) {
    return static_cast<std::uint8_t>((state & ~(wanted_any << watched)) | (wanted << watched));
}

std::uint32_t watchedOf(std::uint32_t state) {
    return (state >> watched) & wanted_any;
}

epoll_event eventOf(int descriptor, std::uint32_t wanted) {
    epoll_event event{};
    if ((wanted & wanted_in) != 0) event.events |= EPOLLIN;
    if ((wanted & wanted_out) != 0) event.events |= EPOLLOUT;
    event.data.fd = descriptor;
    return event;
}

int readinessOf(std::uint32_t events) {
    int readiness = 0;
    if ((events & EPOLLIN) != 0) readiness |= CURL_CSELECT_IN;
    if ((events & EPOLLOUT) != 0) readiness |= CURL_CSELECT_OUT;
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) readiness |= CURL_CSELECT_ERR;
    return readiness;
}

}  // namespace

SocketEvents::~SocketEvents() {
    if (epoll >= 0) ::close(epoll);
}

bool SocketEvents::begin(CURLM* multi, int wakeup) {
    if (failed || hasBegun()) return !failed;
    wakeup_descriptor = wakeup;
    epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = eventOf(wakeup, wanted_in);
    failed = epoll < 0 || epoll_ctl(epoll, EPOLL_CTL_ADD, wakeup, &event) != 0 ||
             curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &SocketEvents::follow) != CURLM_OK ||
             curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this) != CURLM_OK;
    return !failed;
}

void SocketEvents::open(curl_socket_t socket) {
    if (makeRoom(socket)) states[static_cast<std::size_t>(socket)] = told;
}

bool SocketEvents::makeRoom(curl_socket_t socket) {
    const auto place = static_cast<std::size_t>(socket);
    try {
        if (place >= states.size()) states.resize(place + events_at_once);
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    return place < states.size();
}

int SocketEvents::close(void* events, curl_socket_t socket) {
    static_cast<SocketEvents*>(events)->forget(socket);
    return ::close(socket);
}

// A child of the program may have the same socket, and with it a place in the set.
void SocketEvents::forget(curl_socket_t socket) {
    const auto place = static_cast<std::size_t>(socket);
    const std::uint32_t state = place < states.size() ? states[place] : 0U;
    const bool is_driving = watchedOf(state) != 0;
    if (!is_driving || (watchedOf(state) & wanted_out) != 0) lost = true;
    if (is_driving) watch(socket, 0);
    if (place < states.size()) states[place] = 0;
}

bool SocketEvents::hasLostOne() {
    return std::exchange(lost, false);
}

int SocketEvents::follow(CURL* /*easy*/, curl_socket_t socket, int what, void* events, void* /*data*/) {
    auto& self = *static_cast<SocketEvents*>(events);
    const std::uint32_t wanted = what == CURL_POLL_REMOVE ? 0U : static_cast<std::uint32_t>(what) & wanted_any;
    if (self.makeRoom(socket)) self.want(socket, wanted);
    return 0;
}

// Who has ended is likely to be read from again. What is closed behind our back must not stay.
void SocketEvents::want(curl_socket_t socket, std::uint32_t wanted) {
    std::uint8_t& state = states[static_cast<std::size_t>(socket)];
    state = withWanted(state, wanted);
    const bool may_stay = wanted == 0 && watchedOf(state) == wanted_in && (state & told) != 0;
    if (watchedOf(state) != wanted && !may_stay) watch(socket, wanted);
}

void SocketEvents::watch(curl_socket_t socket, std::uint32_t wanted) {
    std::uint8_t& state = states[static_cast<std::size_t>(socket)];
    epoll_event event = eventOf(socket, wanted);
    const int how = wanted == 0 ? EPOLL_CTL_DEL : watchedOf(state) != 0 ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (epoll_ctl(epoll, how, socket, &event) != 0 && wanted != 0) failed = true;
    state = withWatched(state, wanted);
}

// What nobody waits for is an idle connection that its server closes, say: libcurl finds out when it would use it.
bool SocketEvents::take(CURLM* multi, curl_socket_t socket, std::uint32_t ready) {
    if (socket == wakeup_descriptor) return true;
    if ((states[static_cast<std::size_t>(socket)] & wanted_any) == 0) {
        watch(socket, 0);
        return false;
    }
    int running = 0;
    curl_multi_socket_action(multi, socket, readinessOf(ready), &running);
    return false;
}

// With a socket libcurl looks at its timers as well.
bool SocketEvents::drive(CURLM* multi, int milliseconds) {
    std::array<epoll_event, events_at_once> events;
    const int count = epoll_wait(epoll, events.data(), static_cast<int>(events.size()), milliseconds);
    bool woken = false;
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        woken = take(multi, event.data.fd, event.events) || woken;
    }
    if (count > (woken ? 1 : 0)) return woken;
    int running = 0;
    curl_multi_socket_action(multi, CURL_SOCKET_TIMEOUT, 0, &running);
    return woken;
}

void SocketEvents::sweep(CURLM* multi) {
    int running = 0;
    curl_multi_socket_all(multi, &running);
}

}  // namespace kel::http
