// SPDX-License-Identifier: MIT
#include "WakeUp.h"

#include <sys/eventfd.h>

#include "Sockets.h"

namespace kel::http::test {

WakeUp::WakeUp() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event_.get() < 0) throwErrno("eventfd");
}

void WakeUp::signal() const {
    eventfd_write(event_.get(), 1);
}

void WakeUp::clear() const {
    eventfd_t count = 0;
    eventfd_read(event_.get(), &count);
}

}  // namespace kel::http::test
