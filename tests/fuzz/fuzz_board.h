// What every fuzz target shares: a board brought up as the firmware leaves it
// after its start-up, a card folder of its own, a bound on simulated time for
// each call, and the checks that the stored records still carry their marker
// and version text afterwards.
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>

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

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
