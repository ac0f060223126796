// SPDX-License-Identifier: MIT
#ifndef KO_CONTAINERS_H
#define KO_CONTAINERS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace ko {
namespace containers {

// The lower-case form of an ASCII letter; every other character is returned as it is, whatever the locale.
constexpr unsigned char ascii_lower(char character) noexcept {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

// Hash, and with lc_equals equality, of unordered containers whose string keys differ by more than the case of ASCII
// letters.
// Bytes beyond ASCII have to match exactly. Any thread; nothing is allocated.
struct lc_hash {
    // Equal for texts that lc_equals calls equal.
    //
    // It never throws, but does not say so: containers then keep the hash of each entry instead of computing it again
    // for the neighbours of every entry that is inserted.
    std::size_t operator()(const std::string& text) const {
        // FNV-1a, as good on 32 bits as on 64, but four characters at a time.
        //
        // The bit that tells a small letter from a capital is set in every byte: other pairs of characters fall
        // together as well, which costs a comparison now and then and saves one for each character.
        std::uint32_t hash = 2166136261U;
        const char* rest = text.data();
        std::size_t left = text.size();
        for (; left >= sizeof hash; rest += sizeof hash, left -= sizeof hash) {
            std::uint32_t word = 0;
            std::memcpy(&word, rest, sizeof word);
            hash = (hash ^ (word | 0x20202020U)) * 16777619U;
            hash ^= hash >> 15U;  // a multiplication carries nothing down
        }
        for (; left > 0; ++rest, --left) {
            hash = (hash ^ (static_cast<unsigned char>(*rest) | 0x20U)) * 16777619U;
        }
        return hash;
    }
};

// See lc_hash.
struct lc_equals {
    // True when the texts differ by nothing but the case of ASCII letters.
    bool operator()(const std::string& left, const std::string& right) const noexcept {
        if (left.size() != right.size()) return false;
        for (std::size_t i = 0; i < left.size(); ++i) {
            if (ascii_lower(left[i]) != ascii_lower(right[i])) return false;
        }
        return true;
    }
};

}  // namespace containers
}  // namespace ko

#endif  // KO_CONTAINERS_H
