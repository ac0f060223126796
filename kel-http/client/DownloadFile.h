// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tl/optional.hpp>

namespace kel::http {

// The file that the body of a download goes to. Small pieces are collected; what is worth a call of its own is written at
// once, together with those that came before. One that could not be written is the last: a file is the beginning of the
// whole, whatever room there is later.
class DownloadFile {
 public:
    // Why a file can not be gone on with: it is not what it was. The text tells it to the one who started the download.
    struct Changed : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    DownloadFile() = default;
    // Closes it.
    ~DownloadFile();
    DownloadFile(const DownloadFile&) = delete;
    DownloadFile& operator=(const DownloadFile&) = delete;

    // Makes the file `path`, to be renamed onto `target` later. What replaces a regular file has its permissions before a
    // byte is written, and none that this one has not before that. False when it can not be had.
    bool create(const std::string& path, const std::string& target);

    // Opens `path` to go on at its end. When it is known how many bytes are `expected` there, 0 for no file as well, it has
    // to have so many; else throws Changed, and nothing has been written or made. False when it can not be opened.
    bool append(const std::string& path, tl::optional<std::uintmax_t> expected);

    bool is_open() const { return descriptor >= 0; }
    // What was there when it was opened.
    std::uintmax_t size_before() const { return present; }

    // False when this piece, or one before it, could not be written. Throws std::bad_alloc.
    bool write(std::string_view data);
    // Writes what has been collected. That it can not be written is told by the next call.
    void flush();
    // False when something could not be written.
    bool close();

 private:
    bool write_out(std::string_view data);
    void give_up(const std::string& path);

    std::string collected;
    std::uintmax_t present = 0;
    int descriptor = -1;
    bool has_failed = false;
};

}  // namespace kel::http
