// Someone at the far end of a serial line: a person at a terminal or a host
// program. Types what it is given, paced at the line rate, and answers
// prompts: each step waits until the board's text ends in its prompt, then
// types its answer after a short pause. Keeps every byte the board sent.
#pragma once
#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "devices.h"

namespace sim {

class Typist : public SerialDevice {
  public:
    using Step = std::pair<std::string, std::string>; // how the prompt ends, what to type
    explicit Typist(std::vector<Step> steps = {}, uint32_t pauseMs = 5, uint32_t baud = 115200);

    void type(const std::string &bytes, uint64_t at); // first byte sent from `at` on
    void type(const std::string &bytes) { type(bytes, now_cycles()); }
    size_t answered() const { return nextStep_; }
    bool all_answered() const { return nextStep_ == steps_.size() && q_.empty(); }

    std::string seen; // everything the board sent

    uint64_t next_byte_at() override { return q_.empty() ? kNever : next_; }
    uint8_t take_byte() override;
    void receive(uint8_t byte, uint64_t at) override;
    void line_rate(uint32_t baud) override { byte_ = kCpuHz * 10u / baud; }

  private:
    std::vector<Step> steps_;
    size_t nextStep_ = 0;
    std::deque<uint8_t> q_;
    uint64_t next_ = 0;
    uint64_t byte_;
    uint64_t pause_;
};

} // namespace sim
