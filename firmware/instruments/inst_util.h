// Small helpers the serial instrument drivers share: elapsed 10-ms ticks, the
// pause of a step that has nothing to do yet, and texts into a line buffer.
// Not part of any driver's interface.
#pragma once
#include <stdint.h>

// Ticks since `since` on the 10-ms stopwatch (unsigned: a counter that was
// cleared meanwhile reads as a very long time).
uint32_t inst_ticks_since(uint32_t since);

// Nothing to do until the next byte or tick: wait for the next interrupt, so
// a caller that steps a driver in a tight loop lets time move.
void inst_idle(void);

// Writes text into a line buffer of `room` bytes, always terminated.
void inst_line_text(unsigned char *buf, uint32_t room, const char *text);

// Waits up to maxWait ticks for a byte in the ring behind `avail`: elapsed
// ticks when one is there, maxWait at the time-out, 0 (after the message
// `rolloverMsg`) when the tick counter went backwards. Polls every 500 us.
uint32_t inst_waitRx(int (*avail)(void), uint32_t maxWait, const char *rolloverMsg);

// Reads one byte after a wait that promised one; a wait that came back
// early without a byte (counter rolled back) gives -1 instead of blocking.
int inst_take(int (*avail)(void), int (*rx)(void));

// Clears the room behind the first `size` bytes of a line buffer, so a reply
// that filled the line without a string end still ends right behind it.
void inst_clear_room(unsigned char *buf, uint32_t size, uint32_t room);

// Sends bytes as they stand (no CR inserted before LF), through tx.
void inst_send_raw(void (*tx)(int), const char *bytes, uint32_t len);
