// A test instrument that answers exact bytes, for work on a driver's reply
// parsing: each step waits until the line has heard its trigger (an empty
// trigger: the port coming up at the instrument's rate), then sends its reply
// `delay_ms` later, paced at the instrument's rate. The script starts again
// each time the board sets its UART to that rate.
#pragma once
#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "devices.h"

namespace sim {

class ScriptedLine : public SerialDevice {
  public:
    struct Step {
        std::string trigger, reply;
        double delay_ms;
    };
    ScriptedLine(uint32_t baud, std::vector<Step> steps) : baud_(baud), steps_(std::move(steps)) {}

    uint64_t next_byte_at() override;
    uint8_t take_byte() override;
    void receive(uint8_t byte, uint64_t at) override;
    void line_rate(uint32_t baud) override;

    std::string heard; // every byte since the port came up

  private:
    void fire(uint64_t at);
    uint32_t baud_;
    std::vector<Step> steps_;
    size_t next_ = 0;
    std::deque<std::pair<uint64_t, uint8_t>> q_;
    uint64_t free_ = 0;
};

} // namespace sim
