// SPDX-License-Identifier: MIT
#include "Load.h"

#include <cstdio>
#include <cstdlib>

namespace kel::http::bench {

void Load::run(ko::executor& executor, int total, int concurrency, const std::string& url) {
    done_ = {};
    url_ = url;
    total_ = total;
    started_ = answered_ = 0;
    executor.post([this, concurrency] { start(concurrency); }, 0);
    done_.get_future().wait();
}

void Load::hold(ko::executor& executor, int count, const std::string& url) {
    const auto start_all = [this, count, url] {
        for (int i = 0; i < count; ++i) loop_->get(url);
    };
    executor.post(start_all, 0);
}

void Load::start(int count) {
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
        start(1);
    }
}

}  // namespace kel::http::bench
