// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <string_view>

namespace kel::http {

// By what a changed file, or one of several, is told: device, inode, size and times, and a name where it has one, all of it
// mixed into one number. A change of one of these figures always shows; one of several does unless two numbers of 64 bits
// happen to be the same. Nothing has been added for a file that is not there.
class FileState {
 public:
    void add(const struct stat& status) {
        for (const std::uint64_t figure :
             {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
              static_cast<std::uint64_t>(status.st_size), seconds(status.st_mtim), nanoseconds(status.st_mtim),
              seconds(status.st_ctim), nanoseconds(status.st_ctim)}) {
            mix(figure);
        }
        if (isBefore(newest, status.st_ctim)) newest = status.st_ctim;
    }
    void add(std::string_view name) {
        mix(name.size());
        for (const char c : name) mix(static_cast<unsigned char>(c));
    }

    // When one of them was changed last; zero when there is none.
    const timespec& changed() const { return newest; }

    bool operator==(const FileState& other) const { return mixed == other.mixed; }

 private:
    static std::uint64_t seconds(const timespec& time) { return static_cast<std::uint64_t>(time.tv_sec); }
    static std::uint64_t nanoseconds(const timespec& time) { return static_cast<std::uint64_t>(time.tv_nsec); }
    static bool isBefore(const timespec& one, const timespec& other) {
        return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
    }
    // Each step can be undone: no figure is lost. The constants are those of the usual 64-bit finalizers.
    void mix(std::uint64_t figure) {
        mixed = (mixed ^ figure) + 0x9E3779B97F4A7C15U;
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
        mixed ^= mixed >> 31U;
    }

    std::uint64_t mixed = 0;
    timespec newest{};
};

}  // namespace kel::http
