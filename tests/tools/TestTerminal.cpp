// SPDX-License-Identifier: MIT
#include "TestTerminal.h"

#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <stdexcept>

#include "support/Deadline.h"
#include "support/Sockets.h"

namespace kel::http::test {
namespace {

std::size_t countOf(const std::string& part, const std::string& text) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

// As far as names in the tests have them: from the East Asian ones on.
bool isWide(const std::string& letter) {
    return letter.size() == 3 && static_cast<unsigned char>(letter[0]) >= 0xE3;
}

std::size_t bytesOfLetter(char first) {
    const auto lead = static_cast<unsigned char>(first);
    return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

class Screen {
 public:
    Screen(std::size_t columns, std::size_t rows) : columns_(columns), rows_(rows) {}

    void put(const std::string& letter) {
        const std::size_t width = isWide(letter) ? 2 : 1;
        if (column_ + width > columns_) {
            lineFeed();
            carriageReturn();
        }
        if (lines_.size() <= row_) lines_.resize(row_ + 1);
        Line& line = lines_[row_];
        if (line.size() < column_ + width) line.resize(column_ + width, " ");
        line[column_] = letter;
        if (width == 2) line[column_ + 1].clear();
        column_ += width;
    }

    void carriageReturn() { column_ = 0; }

    void lineFeed() {
        ++row_;
        if (row_ >= top_ + rows_) ++top_;
    }

    void obey(char command, std::size_t number) {
        if (command == 'A') {
            row_ -= std::min(row_ - top_, number);
        } else if (command == 'K' || command == 'J') {
            if (row_ < lines_.size()) lines_[row_].resize(std::min(lines_[row_].size(), column_));
            if (command == 'J') lines_.resize(std::min(lines_.size(), row_ + 1));
        } else {
            throw std::runtime_error(std::string("an escape sequence that no bar needs: ") + command);
        }
    }

    std::vector<std::string> lines() const {
        std::vector<std::string> visible;
        for (const Line& line : lines_) {
            const std::string text = std::accumulate(line.begin(), line.end(), std::string());
            visible.push_back(text.substr(0, text.find_last_not_of(' ') + 1));
        }
        while (!visible.empty() && visible.back().empty()) visible.pop_back();
        return visible;
    }

 private:
    using Line = std::vector<std::string>;  // a letter for each column; nothing behind one that takes two

    const std::size_t columns_;
    const std::size_t rows_;
    std::vector<Line> lines_;
    std::size_t top_ = 0;  // the first row on the screen
    std::size_t row_ = 0;
    std::size_t column_ = 0;
};

}  // namespace

TestTerminal::TestTerminal(unsigned short columns, unsigned short rows) {
    int own = -1;
    int child = -1;
    const winsize size{rows, columns, 0, 0};
    if (openpty(&own, &child, nullptr, nullptr, &size) != 0) throwErrno("openpty");
    own_side_ = FileDescriptor(own);
    child_side_ = FileDescriptor(child);
    reader_ = std::thread([this] { read(); });
}

TestTerminal::~TestTerminal() {
    close();
}

void TestTerminal::resize(unsigned short columns, unsigned short rows) const {
    const winsize size{rows, columns, 0, 0};
    if (ioctl(child_side_.get(), TIOCSWINSZ, &size) != 0) throwErrno("TIOCSWINSZ");
}

void TestTerminal::await(const std::string& text, std::size_t times) {
    std::unique_lock<std::mutex> lock(mutex_);
    awaitUntil(changed_, lock, '"' + text + "\" on the terminal", [&] { return countOf(text, written_) >= times; });
}

std::string TestTerminal::close() {
    // The reader meets an error when the last one who could write is gone.
    child_side_.reset();
    if (reader_.joinable()) reader_.join();
    return written_;
}

void TestTerminal::read() {
    std::array<char, 4096> bytes;
    for (ssize_t count = 0; (count = ::read(own_side_.get(), bytes.data(), bytes.size())) > 0;) {
        const std::lock_guard<std::mutex> lock(mutex_);
        written_.append(bytes.data(), static_cast<std::size_t>(count));
        changed_.notify_all();
    }
}

std::vector<std::string> screenAfter(const std::string& written, std::size_t columns, std::size_t rows) {
    Screen screen(columns, rows);
    for (std::size_t i = 0; i < written.size(); ++i) {
        if (written[i] == '\r') {
            screen.carriageReturn();
        } else if (written[i] == '\n') {
            screen.lineFeed();
        } else if (written.compare(i, 2, "\x1b[") == 0) {
            const auto end = written.find_first_not_of("0123456789", i + 2);
            const std::string number = written.substr(i + 2, end - i - 2);
            screen.obey(written.at(end), number.empty() ? 1 : std::stoul(number));
            i = end;
        } else {
            const std::string letter = written.substr(i, bytesOfLetter(written[i]));
            screen.put(letter);
            i += letter.size() - 1;
        }
    }
    return screen.lines();
}

}  // namespace kel::http::test
