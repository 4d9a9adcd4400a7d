// Someone at the far end of a serial line: a person at a terminal or a host
// program. Types what it is given, paced at the line rate, and answers
// prompts: each step waits until the board's text ends in its prompt, then
// types its answer after a short pause. A host that answers whatever comes
// sends its next reply each time the board ends a line, and one that gives
// up sends a last text after a quiet spell. Keeps every byte the board sent.
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
    // Each of `replies` goes out once the board ends a line (CR or LF) while
    // nothing is left to send.
    void reply_per_line(std::vector<std::string> replies) { replies_ = std::move(replies); }
    // `bytes` go out `quietMs` after everything else was sent.
    void then_after_quiet(const std::string &bytes, double quietMs);
    // Everything sent, the last text too; `last_sent()` is when the last byte arrived.
    bool done() const { return q_.empty() && closing_.empty() && nextReply_ == replies_.size(); }
    uint64_t last_sent() const { return last_; }

    std::string seen; // everything the board sent

    uint64_t next_byte_at() override { return q_.empty() ? kNever : next_; }
    uint8_t take_byte() override;
    void receive(uint8_t byte, uint64_t at) override;
    void line_rate(uint32_t baud) override { byte_ = kCpuHz * 10u / (baud ? baud : 1); }

  private:
    void close_if_done(uint64_t at);
    std::vector<Step> steps_;
    size_t nextStep_ = 0;
    std::vector<std::string> replies_;
    size_t nextReply_ = 0;
    std::string closing_;
    uint64_t quiet_ = 0, last_ = 0;
    std::deque<uint8_t> q_;
    uint64_t next_ = 0;
    uint64_t byte_;
    uint64_t pause_;
};

} // namespace sim
