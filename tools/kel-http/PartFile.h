// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kel::http::tool {

// The file next to a download's target that its bytes are appended to: "target.part". It is opened or made before
// anything is sent, so that what can not be written is told early, and locked, so that two runs do not mix their bytes.
//
// Errors: ToolError with LocalFileError.
class PartFile {
 public:
    // Looks at the target too: what is there must be a plain file, in a folder that can be written to.
    explicit PartFile(const std::string& target);
    // Removes it when nothing is in it, unless it was there before.
    ~PartFile();
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    const std::string& path() const { return path_; }
    int descriptor() const { return descriptor_; }

    // Whether its name still is its own: somebody may have removed it, or the folder.
    bool is_in_place() const;
    std::uint64_t size() const;
    // What an earlier run has left in it.
    std::uint64_t size_before() const { return size_before_; }

    // Forgets what an earlier run has left.
    void start_anew();
    // Drops what has been appended.
    void restore() const;
    void remove() const;
    // Gives it the name of the target, at once: there is the old file, or the whole new one. After a power cut too.
    void publish() const;

    // Why nothing can be appended any more, as errno has it; 0 when that is possible after all. Tries it elsewhere in the
    // folder: whatever ends this process meanwhile, the file has its own bytes only.
    int find_write_error() const;

 private:
    bool open_and_lock();

    const std::string target_;
    const std::string path_;
    int descriptor_ = -1;
    bool is_new_ = false;
    std::uint64_t size_before_ = 0;
};

// What a person can do about a file that can not be written; empty when nothing is known.
std::string advice_on_file(int error);

}  // namespace kel::http::tool
