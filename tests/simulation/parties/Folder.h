// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

namespace kel::http::simulation {

// A folder of the real disk for one world's files, this user's alone. It goes with what is in it.
class Folder {
 public:
    // Cookies are kept there as well.
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string pathOf(const std::string& name) const { return path_ + '/' + name; }
    void put(const std::string& name, const std::string& content) const;
    void remove(const std::string& name) const;
    bool has(const std::string& name) const;
    // Empty when there is none.
    std::string get(const std::string& name) const;
    // Everything by its name, what is random in the names left out; of the cookie file only the name.
    std::map<std::string, std::string> contents() const;
    // The same text in each world.
    std::string withoutChance(std::string text) const;

 private:
    std::string path_;
};

}  // namespace kel::http::simulation
