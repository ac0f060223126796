// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "FileDescriptor.h"

namespace kel::http::test {

// Whole files. Errors: std::runtime_error with the file's name.
void writeWholeFile(const std::string& path, const std::string& bytes);
std::string readWholeFile(const std::string& path);

// The complete lines of a file; what follows the last line end is left out.
std::vector<std::string> readLines(const std::string& path);

// Waits until the file has `count` complete lines and returns all of them. Errors: DeadlineMissed.
std::vector<std::string> awaitLines(const std::string& path, std::size_t count);

// A descriptor that gets readable when somebody writes to the file from now on, until forgetWrites().
FileDescriptor watchForWrites(const std::string& path);
void forgetWrites(const FileDescriptor& watch);

}  // namespace kel::http::test
