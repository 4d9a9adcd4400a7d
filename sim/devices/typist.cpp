#include "typist.h"

namespace sim {

Typist::Typist(std::vector<Step> steps, uint32_t pauseMs, uint32_t baud)
    : steps_(std::move(steps)), byte_(kCpuHz * 10u / baud), pause_(pauseMs * kCyclesPerMs) {}

void Typist::type(const std::string &bytes, uint64_t at) {
    for (char c : bytes) {
        q_.push_back(uint8_t(c));
    }
    if (next_ < at) {
        next_ = at + byte_;
    }
}

uint8_t Typist::take_byte() {
    uint8_t c = q_.front();
    q_.pop_front();
    last_ = next_;
    next_ += byte_;
    close_if_done(last_);
    return c;
}

void Typist::then_after_quiet(const std::string &bytes, double quietMs) {
    closing_ = bytes;
    quiet_ = uint64_t(quietMs * double(kCyclesPerMs));
    close_if_done(now_cycles());
}

void Typist::close_if_done(uint64_t at) {
    if (q_.empty() && nextReply_ == replies_.size() && !closing_.empty()) {
        type(closing_, at + quiet_);
        closing_.clear();
    }
}

void Typist::receive(uint8_t byte, uint64_t at) {
    seen += char(byte);
    if ((byte == '\r' || byte == '\n') && q_.empty() && nextReply_ < replies_.size()) {
        type(replies_[nextReply_++], at);
    }
    if (nextStep_ >= steps_.size()) {
        return;
    }
    const std::string &end = steps_[nextStep_].first;
    if (seen.size() >= end.size() && seen.compare(seen.size() - end.size(), end.size(), end) == 0) {
        type(steps_[nextStep_++].second, at + pause_);
    }
}

} // namespace sim
