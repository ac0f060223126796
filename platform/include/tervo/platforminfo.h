// SPDX-License-Identifier: MIT
#ifndef TERVO_PLATFORMINFO_H
#define TERVO_PLATFORMINFO_H

#include <string>

// What the library asks about the system it runs on. Threads: any.
namespace tervo {
namespace platforminfo {

// Folder for files of one type, without a slash at the end; empty for an unknown type, and when there is none: such files
// are then not kept.
// "PATH_TYPE_TEMP": files that may vanish with a restart. It exists, and only this process's user can write to it.
std::string get_resource_filepath(const std::string& type);

// Whether the system is one that customers have, as against one for development.
bool is_release_build();

// Whether a release build has been switched to testing.
bool is_test_mode();

}  // namespace platforminfo
}  // namespace tervo

#endif  // TERVO_PLATFORMINFO_H
