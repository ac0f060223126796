// SPDX-License-Identifier: MIT
#ifndef KO_HOST_SETTINGS_H
#define KO_HOST_SETTINGS_H

#include <memory>

#include "ko/host.h"

namespace ko {
namespace host {

// The settings in effect, or the defaults. Any thread; what is returned never changes.
std::shared_ptr<const Settings> current_settings();

}  // namespace host
}  // namespace ko

#endif  // KO_HOST_SETTINGS_H
