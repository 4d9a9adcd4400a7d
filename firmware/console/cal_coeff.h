// Calibration coefficients of the sensor: typed by the operator, received as a
// calibration file over YMODEM, read from the card file "DF384.cal", listed
// for the operator (export) and sent to the host as one line.
#pragma once
#include <stdint.h>

// Longest line taken from a calibration text in memory, and from the card.
#define CAL_PACKET_LINE_MAX 32u
#define CAL_FILE_LINE_MAX 24u
#define CAL_CARD_FILE "DF384.cal"

void get_pH_sensor_cal_coeff(void);
void export_pH_sensor_cal_coeff(void);
void import_pH_sensor_cal_coeff(void);
void import_ymodem_cal_coeff(void);
void enter_pH_sensor_cal_coeff(void);

// Parses a calibration text held in memory (ends at its first NUL) and stores
// its twenty values in sys_data.
void parse_cal_packet(const char *bufPtr);
// Copies one line of the text at bufPtr into `line` (CAL_PACKET_LINE_MAX + 1
// bytes), CR and LF turned into NUL; returns where the next line starts. A
// longer line is cut, and its rest is the next line. Stops at a NUL.
const char *egets(char *line, const char *bufPtr);
// Reads one line of the open card calibration file into bufPtr
// (CAL_FILE_LINE_MAX + 1 bytes), a byte at a time, at most CAL_FILE_LINE_MAX
// bytes; CR becomes NUL and reading goes on, LF becomes NUL and ends the line.
// Returns the bytes read (0 at the end of the file).
uint32_t efgets(char *bufPtr);
