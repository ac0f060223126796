// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <vector>

namespace kel::http {

// Waits for libcurl's sockets with epoll(7), and has libcurl look at those that are ready and at no others
// (curl_multi_socket_action(3)): transfers that wait cost nothing.
//
// A socket of a transfer that has ended stays where it is, as most of them serve another one: usually a request needs no
// epoll_ctl(2).
//
// Engine thread; made and destroyed by the engine's owner while that thread is not running.
class SocketEvents {
 public:
    SocketEvents() = default;
    ~SocketEvents();
    SocketEvents(const SocketEvents&) = delete;
    SocketEvents& operator=(const SocketEvents&) = delete;

    // From now on it can wait for the sockets of `multi`, and for `wakeup`. False: the system does not let it.
    bool begin(CURLM* multi, int wakeup);
    bool hasBegun() const { return epoll >= 0; }
    // False: there is a socket that it can not wait for, and there will be no other answer.
    bool works() const { return !failed; }

    // Waits so long at most, and has libcurl deal with what has happened. True: `wakeup` is readable.
    bool drive(CURLM* multi, int milliseconds);
    // Has libcurl look at all transfers, and tell what each waits for.
    static void sweep(CURLM* multi);

    // Whether libcurl has closed a socket since the last time: 7.88 goes on with the next address of a host only when it is
    // called again, and asks for that much later, after 200 ms or after half of the time that is left. While it drives
    // transfers only those count that were still to be connected.
    bool hasLostOne();

    // Is told of each socket that libcurl opens, by way of the engine.
    void open(curl_socket_t socket);
    // Closes one for libcurl (`CURLOPT_CLOSESOCKETFUNCTION`, with the SocketEvents as its data).
    static int close(void* events, curl_socket_t socket);

 private:
    static int follow(CURL* easy, curl_socket_t socket, int what, void* events, void* data);
    bool makeRoom(curl_socket_t socket);
    void want(curl_socket_t socket, std::uint32_t wanted);
    void watch(curl_socket_t socket, std::uint32_t wanted);
    void forget(curl_socket_t socket);
    bool take(CURLM* multi, curl_socket_t socket, std::uint32_t ready);

    int wakeup_descriptor = -1;
    int epoll = -1;
    bool failed = false;
    bool lost = false;
    // By descriptor: what libcurl waits for, and what epoll does.
    std::vector<std::uint8_t> states;
};

}  // namespace kel::http
