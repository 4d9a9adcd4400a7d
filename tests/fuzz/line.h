// A far end of a serial line for the fuzz targets: sends its bytes at the
// board's line rate, each chunk after the board has finished a line of its
// own (or at once), and a closing text after a quiet spell.
#pragma once
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "devices.h"

namespace fuzz {

class Line : public sim::SerialDevice {
  public:
    // `chunks[0]` goes out at once; each further chunk after the board ends a
    // line (CR or LF), or all at once when `answer` is false. `closing` goes
    // out `quietMs` after the last chunk.
    Line(std::vector<std::string> chunks, bool answer, std::string closing = "",
         double quietMs = 0);
    uint64_t next_byte_at() override;
    uint8_t take_byte() override;
    void receive(uint8_t byte, uint64_t at) override;
    // Everything sent, the closing text too; `last()` is when it ended.
    bool done() const { return q_.empty() && closing_.empty() && next_ == chunks_.size(); }
    uint64_t last() const { return free_; }
    void line_rate(uint32_t baud) override { byte_ = 10 * sim::kCpuHz / (baud ? baud : 1); }

  private:
    void queue(const std::string &s, uint64_t at);
    void close_if_done(uint64_t t);
    std::vector<std::string> chunks_;
    size_t next_ = 0;
    bool answer_;
    std::string closing_;
    uint64_t quiet_;
    std::deque<std::pair<uint64_t, uint8_t>> q_;
    uint64_t free_ = 0, byte_ = 10 * sim::kCpuHz / 115200;
};

// The host on the console line: sends `size` bytes at once, then `closing`
// `quietMs` after the last of them.
std::shared_ptr<Line> console_host(const uint8_t *data, size_t size, const std::string &closing,
                                   double quietMs);

// Splits fuzz bytes into chunks at `sep`.
std::vector<std::string> split(const uint8_t *data, size_t size, char sep);

} // namespace fuzz
