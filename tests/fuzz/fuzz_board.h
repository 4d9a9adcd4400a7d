// What every fuzz target shares: a board brought up as the firmware leaves it
// after its start-up, a card folder of its own, a bound on simulated time for
// each call, and the checks that the stored records still carry their marker
// and version text afterwards.
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "typist.h"

namespace fuzz {

// A fresh board: clocks, SysTick, console, I2C, a mounted empty card, a
// stored default configuration record and sampling state.
void board_up();
// Runs fn with the clock bounded `seconds` ahead; a call that does not
// return by then is a hang and aborts the run.
void bounded(double seconds, const std::function<void()> &fn);
// The EEPROM record's version text and the FRAM sampling state's marker are
// what board_up() stored; aborts with a message when not.
void check_records();
// Writes bytes to a file on the board's card.
void card_put(const char *name, const uint8_t *data, size_t size);
// The host on the console line: types `size` bytes at once, then `closing`
// `quietMs` after the last of them (a host giving up).
std::shared_ptr<sim::Typist> console_host(const uint8_t *data, size_t size,
                                          const std::string &closing, double quietMs);
// Splits fuzz bytes into chunks at `sep`.
std::vector<std::string> split(const uint8_t *data, size_t size, char sep);

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
