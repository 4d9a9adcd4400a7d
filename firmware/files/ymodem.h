// File transfer over the console line (UART0) with YMODEM: a card file to a
// terminal program, a file from it onto the card, or a calibration file that
// is parsed instead of stored (console/cal_coeff).
//
// The transfer owns the console while it runs: echo is off, bytes go out raw
// through the UART FIFO (never through the formatted console output), and
// every wait sleeps until the next interrupt. Progress and card error texts
// go to the debug console (the C library's standard error: dropped on the
// board, the simulator's own messages on the host), never to the line.
#pragma once
#include <stdint.h>

// Control bytes of the protocol.
#define YM_SOH 0x01u // 128-byte packet
#define YM_STX 0x02u // 1024-byte packet
#define YM_EOT 0x04u
#define YM_ACK 0x06u
#define YM_NAK 0x15u
#define YM_CAN 0x18u
#define YM_CRC 0x43u // 'C': the receiver asks for CRC packets

#define YM_PACKET_SIZE 1032u // header, number, complement, 1024 data, CRC
#define YM_CAL_MAX_SIZE 500u // largest calibration file accepted
#define YM_MAX_SIZE 1024000000u

// 1 = the next receive is a calibration file to parse, not a file to store.
// The receiver clears it when done.
extern int calFileFlg;

// CRC-16/XMODEM: polynomial 0x1021, initial value 0, no reflection.
uint16_t crc16(const uint8_t *buf, uint32_t count);

// Decimal text of a value; the text's length. `buf` holds at least 11 bytes.
uint32_t u32_to_str(uint32_t value, char *buf);
// Leading decimal digits of `str`; a value past 32 bits stays at 0xFFFFFFFF.
uint32_t str_to_u32(const char *str);

// Sends the card file named by the word after the command (its first 30
// characters); with no name (the host command "ys" gives none) the
// deployment's data file, sys_data.fileName. 0 on success.
int ymodem_send(int argc, char *argv[]);
// The host's form: `argv` is the command line as one text ("ys NAME").
int ymodem_send(int argc, const char *argv);

// Receives one batch onto the card (or, with calFileFlg set, parses the
// calibration file). The arguments are not used. 0 at the end of a batch,
// -1 for every other ending (a parsed calibration file too: its sender is
// cancelled).
int ymodem_receive(int argc, char *argv[]);
int ymodem_receive(int argc, const char *argv);
// As "yr" on the card command line: the file lands in `dir` ("/" the root).
int ymodem_receive_into(const char *dir);
