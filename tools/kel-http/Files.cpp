// SPDX-License-Identifier: MIT
#include "Files.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "ToolError.h"

namespace kel::http::tool {
namespace {

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void fail(const char* action, const std::string& path, int error) {
    const std::string reason = std::generic_category().message(error);
    throw ToolError(LocalFileError, fmt::format("can not {} '{}': {}", action, path, reason));
}

File open(const std::string& path, const char* mode, const char* action) {
    File file(std::fopen(path.c_str(), mode));
    if (!file) fail(action, path, errno);
    return file;
}

std::string read_all(std::FILE* file, const std::string& name) {
    std::string content;
    std::array<char, 65536> block{};
    while (const std::size_t size = std::fread(block.data(), 1, block.size(), file)) content.append(block.data(), size);
    if (std::ferror(file) != 0) fail("read", name, errno);
    return content;
}

}  // namespace

std::string read_file(const std::string& path) {
    if (path == "-") return read_all(stdin, "standard input");
    return read_all(open(path, "rb", "read").get(), path);
}

void check_readable(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) fail("read", path, errno);
    if (!S_ISREG(status.st_mode)) {
        throw ToolError(LocalFileError, fmt::format("can not read '{}': it is not a plain file", path));
    }
    open(path, "rb", "read");
}

void check_target(const std::string& path) {
    struct stat status {};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) fail("write", path, EISDIR);
    if (exists && !S_ISREG(status.st_mode)) return;
    if (access(folder_of(path).c_str(), W_OK | X_OK) != 0) fail("write", path, errno);
}

bool must_stay(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

std::string folder_of(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

void check_folder(const std::string& path, bool writable) {
    struct stat status {};
    const char* const action = writable ? "write to" : "read";
    if (stat(path.c_str(), &status) != 0) fail(action, path, errno);
    if (!S_ISDIR(status.st_mode)) fail(action, path, ENOTDIR);
    if (access(path.c_str(), (writable ? W_OK : R_OK) | X_OK) != 0) fail(action, path, errno);
}

void write_file(const std::string& path, const std::string& bytes) {
    File file = open(path, "wb", "write");
    std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    // A full disk may show at the last flush only.
    if (std::fflush(file.get()) != 0 || std::ferror(file.get()) != 0) fail("write", path, errno);
}

void write_to_stdout(const std::string& bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) fail("write", "standard output", errno);
}

void tell(const std::string& text) {
    write_to_stderr(fmt::format("kel-http: {}\n", text));
}

void write_to_stderr(const std::string& text) {
    std::fputs(text.c_str(), stderr);
}

}  // namespace kel::http::tool
