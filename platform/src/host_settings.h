// SPDX-License-Identifier: MIT
#ifndef KO_HOST_SETTINGS_H
#define KO_HOST_SETTINGS_H

#include "ko/host.h"

namespace ko {
namespace host {

// The settings in effect, or the defaults. Any thread, without a lock; what is returned neither changes nor goes away.
const Settings& current_settings();

}  // namespace host
}  // namespace ko

#endif  // KO_HOST_SETTINGS_H
