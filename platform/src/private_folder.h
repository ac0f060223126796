// SPDX-License-Identifier: MIT
#ifndef KO_PRIVATE_FOLDER_H
#define KO_PRIVATE_FOLDER_H

#include <string>

namespace ko {
namespace host {

// Folders for temporary files that nobody but this process's effective user can reach: what lies there may hold
// sessions, and nobody else can have put it there. Any thread.

// Where this user's is: in the folder that the session has for such things (the value of XDG_RUNTIME_DIR, or null) when
// that is private itself, else one of its own below `shared`.
std::string private_folder_path(const char* session_folder, const std::string& shared);

// The same, made if there was none; the second one where the first one is there but can not be had.
std::string choose_private_folder(const char* session_folder, const std::string& shared);

// Why `folder` is not private, after it has been made where there was none; empty when it is.
std::string make_private_folder(const std::string& folder);

// This process's private folder, chosen at the first call, and made anew when it has vanished. Empty when it can not be
// had; the first such call, and the first one after a good one, logs why.
std::string private_folder();

}  // namespace host
}  // namespace ko

#endif  // KO_PRIVATE_FOLDER_H
