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

// Makes the identity that stands in for a device's own, unless this process has it already. Any thread; slow.
void make_development_identity();

// That identity. Any thread; at once when it is made, as it should be, for it is asked within handshakes. Otherwise the
// caller waits while a thread of its own makes it: the caller's may be an engine's, with little stack.
const Identity& development_identity();

}  // namespace host
}  // namespace ko

#endif  // KO_DEVELOPMENT_IDENTITY_H
