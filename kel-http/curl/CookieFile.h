// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <ctime>
#include <string>
#include <string_view>

namespace kel::http {

// The cookie file as far as the file system is concerned. It holds sessions: what somebody else may have put in its place
// is not used, and it is replaced in one step, so that whoever reads it finds all of the old one or all of the new one.
//
// Threads: any. What may be meant is the calling process's effective user. Errors: std::bad_alloc.

// The file's name in its folder, which is given without a slash at its end.
std::string cookieFilePath(const std::string& folder);

// A descriptor, which is closed with the object; -1 for none.
class Descriptor {
 public:
    explicit Descriptor(int opened = -1) noexcept : descriptor(opened) {}
    Descriptor(Descriptor&& other) noexcept : descriptor(other.descriptor) { other.descriptor = -1; }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() { close(); }

    int get() const { return descriptor; }
    bool isOpen() const { return descriptor >= 0; }
    // Somebody else closes it now.
    void release() { descriptor = -1; }
    // False when the file system reports what it could not write.
    bool close() noexcept;

 private:
    int descriptor;
};

// The file, opened for reading and looked at.
struct OpenedCookieFile {
    // Closed when there is no file, and when there is one that must not be used.
    Descriptor descriptor;
    // Why it must be neither read nor written, and what to do about it; empty when it may be.
    std::string fault;
};

// It may be used when it is a regular file (no link to one) of this user that nobody else may write to, or when there is
// none. Waits for nobody: neither for a pipe's other end nor for a device. Throws std::runtime_error when it can not be had
// for a reason that may pass, as when there is no descriptor left: what the file holds is not known then.
OpenedCookieFile openCookieFile(const std::string& folder);

// Replaces the file with one of this text, which this user alone may read, unless it is one already. Returns what went
// wrong, in which case the file is the old one, or nothing.
//
// The text goes to a sibling first. What a process leaves there that is killed meanwhile the next call takes away.
std::string replaceCookieFile(const std::string& folder, std::string_view text);

// The file's text for cookies as libcurl lists them (null for none), save those that have expired by `now`.
std::string cookieFileText(const curl_slist* cookies, std::time_t now);

}  // namespace kel::http
