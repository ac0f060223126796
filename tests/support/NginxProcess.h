// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "FileDescriptor.h"

namespace kel::http::test {

// One nginx in the foreground, stopped at the end of this object's life.
class NginxProcess {
 public:
    NginxProcess() = default;
    ~NginxProcess() { stop(); }
    NginxProcess(const NginxProcess&) = delete;
    NginxProcess& operator=(const NginxProcess&) = delete;

    // Starts nginx in `directory` with this configuration file and its output in `log_file`. It listens on the given
    // sockets, which the configuration has to name by their addresses; nobody can take their ports in between, and
    // clients may connect from the start.
    //
    // Errors: std::system_error. What happens in the new process stands in `log_file` only.
    void start(const std::string& directory, const std::string& configuration_file, const std::string& log_file,
               const std::vector<int>& listening_sockets);

    // Ends it at once. May be called again.
    void stop();

 private:
    pid_t process_ = -1;
};

}  // namespace kel::http::test
