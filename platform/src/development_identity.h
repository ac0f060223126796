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

// What make_development_identity() made; null before. Any thread; never slow, for it is asked within handshakes.
const Identity* development_identity() noexcept;

}  // namespace host
}  // namespace ko

#endif  // KO_DEVELOPMENT_IDENTITY_H
