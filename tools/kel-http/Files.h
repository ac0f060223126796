// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http::tool {

// Local files. All throw ToolError with LocalFileError, the file's name and the system's reason.

// The whole content of `path`; of standard input for "-".
std::string read_file(const std::string& path);

// That `path` is a plain file and can be read: told before the request is sent, and in clearer words.
void check_readable(const std::string& path);

// That a file can be made at `path`, or replaced: told before the request is sent rather than after.
void check_target(const std::string& path);

// Whether there is something at `path` that must be written to, not replaced: a device, a pipe or a link.
bool must_stay(const std::string& path);

// Where `path` is in.
std::string folder_of(const std::string& path);

// That `path` is a folder, and if so wished that files can be made in it.
void check_folder(const std::string& path, bool writable);

void write_file(const std::string& path, const std::string& bytes);

// To standard output, as they are, and out of this program's hands on return.
void write_to_stdout(const std::string& bytes);

// Sentences for people, on standard error, with the tool's name in front.
void tell(const std::string& text);

// A text for people. When nobody can be told, nobody is: no error.
void write_to_stderr(const std::string& text);

}  // namespace kel::http::tool
