// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>

namespace kel::http {

class EngineCookies;

// What a transfer that writes cookies leaves to be done when it is gone, however it ended: part of it, and done with its
// own end. Engine thread, or whoever frees the transfers that an engine leaves.
class CookieSave {
 public:
    CookieSave() = default;
    CookieSave(const CookieSave&) = delete;
    CookieSave& operator=(const CookieSave&) = delete;
    ~CookieSave();

    // From now on the cookies are to be written to this folder.
    void plan(EngineCookies& of, std::string to_folder) {
        folder = std::move(to_folder);
        cookies = &of;
    }
    // What the file holds by then is not to be read once more: the transfer has forgotten some of it.
    void leaveOutOldFile() { readsFile = false; }
    void drop() { cookies = nullptr; }

 private:
    EngineCookies* cookies = nullptr;
    std::string folder;
    bool readsFile = true;
};

}  // namespace kel::http
