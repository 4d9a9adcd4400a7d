#include "scripted_line.h"

#include <algorithm>

namespace sim {

uint64_t ScriptedLine::next_byte_at() {
    return q_.empty() ? kNever : std::max(q_.front().first, free_) + 10 * kCpuHz / baud_;
}

uint8_t ScriptedLine::take_byte() {
    free_ = next_byte_at();
    uint8_t b = q_.front().second;
    q_.pop_front();
    return b;
}

void ScriptedLine::receive(uint8_t byte, uint64_t at) {
    heard += char(byte);
    fire(at);
}

void ScriptedLine::line_rate(uint32_t baud) {
    if (baud == baud_) {
        heard.clear();
        next_ = 0;
        q_.clear();
        fire(now_cycles());
    }
}

void ScriptedLine::fire(uint64_t at) {
    for (; next_ < steps_.size(); next_++) {
        const Step &s = steps_[next_];
        if (!s.trigger.empty() && heard.find(s.trigger) == std::string::npos) {
            return;
        }
        uint64_t when = at + uint64_t(s.delay_ms * double(kCyclesPerMs));
        for (char c : s.reply) {
            q_.emplace_back(when, uint8_t(c));
        }
    }
}

} // namespace sim
