// SPDX-License-Identifier: MIT
#ifndef KO_DEVELOPMENT_IDENTITY_H
#define KO_DEVELOPMENT_IDENTITY_H

#include <vector>

namespace ko {
namespace host {

// A device identity, both parts in DER.
struct Identity {
    std::vector<unsigned char> certificate;
    std::vector<unsigned char> key;
};

// The identity that stands in for a device's own. Any thread. The first call makes it, which is slow, on a thread of its
// own: the caller's may be an engine's, with little stack.
const Identity& development_identity();

}  // namespace host
}  // namespace ko

#endif  // KO_DEVELOPMENT_IDENTITY_H
