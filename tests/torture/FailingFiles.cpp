// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "torture/Faults.h"
#include "torture/Next.h"

// The functions get their names from labels: headers declare several of them with other types, or turn one name into the
// other when offsets have 64 bits.
namespace {

using kel::http::torture::Kind;
using kel::http::torture::next;
using kel::http::torture::faults::concerns;
using kel::http::torture::faults::strike;

// Not a socket, pipe or eventfd.
bool isFile(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return false;
    return S_ISREG(status.st_mode) || S_ISCHR(status.st_mode) || S_ISDIR(status.st_mode);
}

// Asking the descriptor is a call about a file as well.
bool concernsFile(Kind kind, int descriptor) {
    if (!concerns(kind)) return false;
    const kel::http::torture::Acting bystander(kel::http::torture::Role::bystander);
    return isFile(descriptor);
}

bool fails(const char* call, int error) {
    if (!strike(Kind::file, call)) return false;
    errno = error;
    return true;
}

bool failsOn(int descriptor, const char* call, int error) {
    return concernsFile(Kind::file, descriptor) && fails(call, error);
}

// The length to be used, or the whole one.
std::size_t piece(int descriptor, const char* call, std::size_t length) {
    if (length < 2 || !concernsFile(Kind::piece, descriptor)) return length;
    return strike(Kind::piece, call, static_cast<long>(length)) ? length / 2 : length;
}

mode_t modeOf(int flags, std::va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

#define KEL_OPEN(symbol)                                                            \
    extern "C" int kel_##symbol(const char* path, int flags, ...) __asm__(#symbol); \
    extern "C" int kel_##symbol(const char* path, int flags, ...) {                 \
        static auto* const real = next<int(const char*, int, ...)>(#symbol);        \
        std::va_list arguments;                                                     \
        va_start(arguments, flags);                                                 \
        const mode_t mode = modeOf(flags, arguments);                               \
        va_end(arguments);                                                          \
        return fails("open", EMFILE) ? -1 : real(path, flags, mode);                \
    }
KEL_OPEN(open)
KEL_OPEN(open64)

#define KEL_OPENAT(symbol)                                                                      \
    extern "C" int kel_##symbol(int folder, const char* path, int flags, ...) __asm__(#symbol); \
    extern "C" int kel_##symbol(int folder, const char* path, int flags, ...) {                 \
        static auto* const real = next<int(int, const char*, int, ...)>(#symbol);               \
        std::va_list arguments;                                                                 \
        va_start(arguments, flags);                                                             \
        const mode_t mode = modeOf(flags, arguments);                                           \
        va_end(arguments);                                                                      \
        return fails("openat", EMFILE) ? -1 : real(folder, path, flags, mode);                  \
    }
KEL_OPENAT(openat)
KEL_OPENAT(openat64)

// Functions that fail without having done anything.
#define KEL_FILE(symbol, call, error, result, failure, parameters, arguments) \
    extern "C" result kel_##symbol parameters __asm__(#symbol);               \
    extern "C" result kel_##symbol parameters {                               \
        static auto* const real = next<result parameters>(#symbol);           \
        return fails(call, error) ? (failure) : real arguments;               \
    }
KEL_FILE(__open_2, "open", EMFILE, int, -1, (const char* path, int flags), (path, flags))
KEL_FILE(__open64_2, "open", EMFILE, int, -1, (const char* path, int flags), (path, flags))
KEL_FILE(fopen, "fopen", EMFILE, std::FILE*, nullptr, (const char* path, const char* mode), (path, mode))
KEL_FILE(fopen64, "fopen", EMFILE, std::FILE*, nullptr, (const char* path, const char* mode), (path, mode))
KEL_FILE(fdopen, "fdopen", ENOMEM, std::FILE*, nullptr, (int descriptor, const char* mode), (descriptor, mode))
KEL_FILE(stat, "stat", EIO, int, -1, (const char* path, void* status), (path, status))
KEL_FILE(stat64, "stat", EIO, int, -1, (const char* path, void* status), (path, status))
KEL_FILE(lstat, "lstat", EIO, int, -1, (const char* path, void* status), (path, status))
KEL_FILE(lstat64, "lstat", EIO, int, -1, (const char* path, void* status), (path, status))
KEL_FILE(fstatat, "fstatat", EIO, int, -1, (int folder, const char* path, void* status, int flags),
         (folder, path, status, flags))
KEL_FILE(fstatat64, "fstatat", EIO, int, -1, (int folder, const char* path, void* status, int flags),
         (folder, path, status, flags))
KEL_FILE(statx, "statx", EIO, int, -1, (int folder, const char* path, int flags, unsigned mask, void* status),
         (folder, path, flags, mask, status))
KEL_FILE(rename, "rename", EIO, int, -1, (const char* from, const char* to), (from, to))
KEL_FILE(renameat, "rename", EIO, int, -1, (int from_folder, const char* from, int to_folder, const char* to),
         (from_folder, from, to_folder, to))
KEL_FILE(unlink, "unlink", EIO, int, -1, (const char* path), (path))
KEL_FILE(unlinkat, "unlink", EIO, int, -1, (int folder, const char* path, int flags), (folder, path, flags))
KEL_FILE(remove, "unlink", EIO, int, -1, (const char* path), (path))
KEL_FILE(mkdir, "mkdir", ENOSPC, int, -1, (const char* path, mode_t mode), (path, mode))
KEL_FILE(chmod, "chmod", EIO, int, -1, (const char* path, mode_t mode), (path, mode))

// The same for those of a descriptor.
#define KEL_DESCRIPTOR(symbol, call, error, result, parameters, arguments) \
    extern "C" result kel_##symbol parameters __asm__(#symbol);            \
    extern "C" result kel_##symbol parameters {                            \
        static auto* const real = next<result parameters>(#symbol);        \
        return failsOn(descriptor, call, error) ? -1 : real arguments;     \
    }
KEL_DESCRIPTOR(fstat, "fstat", EIO, int, (int descriptor, void* status), (descriptor, status))
KEL_DESCRIPTOR(fstat64, "fstat", EIO, int, (int descriptor, void* status), (descriptor, status))
KEL_DESCRIPTOR(lseek, "lseek", EIO, long, (int descriptor, long offset, int origin), (descriptor, offset, origin))
KEL_DESCRIPTOR(lseek64, "lseek", EIO, off64_t, (int descriptor, off64_t offset, int origin),
               (descriptor, offset, origin))
KEL_DESCRIPTOR(fsync, "fsync", EIO, int, (int descriptor), (descriptor))
KEL_DESCRIPTOR(fdatasync, "fsync", EIO, int, (int descriptor), (descriptor))
KEL_DESCRIPTOR(fchmod, "fchmod", EIO, int, (int descriptor, mode_t mode), (descriptor, mode))
KEL_DESCRIPTOR(ftruncate, "ftruncate", EIO, int, (int descriptor, long length), (descriptor, length))
KEL_DESCRIPTOR(ftruncate64, "ftruncate", EIO, int, (int descriptor, off64_t length), (descriptor, length))

extern "C" {

ssize_t read(int descriptor, void* buffer, std::size_t length) {
    static auto* const real = next<ssize_t(int, void*, std::size_t)>("read");
    if (failsOn(descriptor, "read", EIO)) return -1;
    return real(descriptor, buffer, piece(descriptor, "read", length));
}

ssize_t pread64(int descriptor, void* buffer, std::size_t length, off64_t offset) {
    static auto* const real = next<ssize_t(int, void*, std::size_t, off64_t)>("pread64");
    if (failsOn(descriptor, "read", EIO)) return -1;
    return real(descriptor, buffer, piece(descriptor, "read", length), offset);
}

ssize_t write(int descriptor, const void* bytes, std::size_t length) {
    static auto* const real = next<ssize_t(int, const void*, std::size_t)>("write");
    if (failsOn(descriptor, "write", ENOSPC)) return -1;
    return real(descriptor, bytes, piece(descriptor, "write", length));
}

ssize_t writev(int descriptor, const iovec* pieces, int count) {
    static auto* const real = next<ssize_t(int, const iovec*, int)>("writev");
    if (failsOn(descriptor, "write", ENOSPC)) return -1;
    if (count < 1) return real(descriptor, pieces, count);
    iovec first = pieces[0];
    first.iov_len = piece(descriptor, "write", first.iov_len);
    return first.iov_len == pieces[0].iov_len ? real(descriptor, pieces, count) : real(descriptor, &first, 1);
}

// A descriptor is gone even when this fails.
int close(int descriptor) {
    static auto* const real = next<int(int)>("close");
    const bool failing = failsOn(descriptor, "close", EIO);
    const int result = real(descriptor);
    if (!failing) return result;
    errno = EIO;
    return -1;
}

int fclose(std::FILE* stream) {
    static auto* const real = next<int(std::FILE*)>("fclose");
    const bool failing = failsOn(fileno(stream), "close", EIO);
    const int result = real(stream);
    if (!failing) return result;
    errno = EIO;
    return EOF;
}

// Where no byte comes the stream has to say that it was a failure: its flag is set as the C library would.
std::size_t fread(void* buffer, std::size_t size, std::size_t count, std::FILE* stream) {
    static auto* const real = next<std::size_t(void*, std::size_t, std::size_t, std::FILE*)>("fread");
    if (failsOn(fileno(stream), "read", EIO)) {
        stream->_flags |= 0x20;  // _IO_ERR_SEEN
        return 0;
    }
    return real(buffer, size, count, stream);
}
}
