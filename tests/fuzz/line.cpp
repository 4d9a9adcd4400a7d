#include "line.h"

#include <algorithm>

#include "hw_types.h"

namespace fuzz {

Line::Line(std::vector<std::string> chunks, bool answer, std::string closing, double quietMs)
    : chunks_(std::move(chunks)), answer_(answer), closing_(std::move(closing)),
      quiet_(uint64_t(quietMs * double(sim::kCyclesPerMs))) {
    uint64_t t = sim::now_cycles();
    while (next_ < chunks_.size() && (next_ == 0 || !answer_)) {
        queue(chunks_[next_++], t);
    }
    close_if_done(t);
}

void Line::close_if_done(uint64_t t) {
    if (q_.empty() && next_ == chunks_.size() && !closing_.empty()) {
        queue(closing_, t + quiet_);
        closing_.clear();
    }
}

void Line::queue(const std::string &s, uint64_t at) {
    for (char c : s) {
        q_.emplace_back(at, uint8_t(c));
    }
}

uint64_t Line::next_byte_at() {
    return q_.empty() ? sim::kNever : std::max(q_.front().first, free_) + byte_;
}

uint8_t Line::take_byte() {
    free_ = next_byte_at();
    uint8_t b = q_.front().second;
    q_.pop_front();
    close_if_done(free_);
    return b;
}

void Line::receive(uint8_t byte, uint64_t at) {
    if ((byte == '\r' || byte == '\n') && q_.empty() && next_ < chunks_.size()) {
        queue(chunks_[next_++], at);
    }
}

std::shared_ptr<Line> console_host(const uint8_t *data, size_t size, const std::string &closing,
                                   double quietMs) {
    auto line = std::make_shared<Line>(
        std::vector<std::string>{size ? std::string(reinterpret_cast<const char *>(data), size)
                                      : ""},
        false, closing, quietMs);
    sim::attach_serial(UART0_BASE, line);
    return line;
}

std::vector<std::string> split(const uint8_t *data, size_t size, char sep) {
    std::vector<std::string> out(1);
    for (size_t i = 0; i < size; i++) {
        if (char(data[i]) == sep) {
            out.emplace_back();
        } else {
            out.back() += char(data[i]);
        }
    }
    return out;
}

} // namespace fuzz
