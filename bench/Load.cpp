// SPDX-License-Identifier: MIT
#include "Load.h"

#include <cstdio>
#include <cstdlib>

namespace kel::http::bench {

void Load::start(Loop& loop, int count) {
    loop_ = &loop;
    for (; count > 0 && started_ < total_; --count) {
        ++started_;
        loop_->get(url_);
    }
}

void Load::onAnswer(int status, const std::string& body) {
    if (status != 200 || body.empty()) {
        std::fprintf(stderr, "kel-http-bench: status %d, %zu bytes\n", status, body.size());
        std::abort();
    }
    if (++answered_ == total_) {
        done_.set_value();
    } else {
        start(*loop_, 1);
    }
}

}  // namespace kel::http::bench
