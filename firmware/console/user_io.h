// Console input and output conventions: formatted output with the stored
// newline mode, line-based input, yes/no answers, date and time entry.
#pragma once
#include <stdint.h>
#include <time.h>

uint32_t uprintf(const char *format, ...) __attribute__((format(printf, 1, 2)));
uint32_t dbg_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
void print_newline(uint32_t mode);
void prn_nl(void);
uint32_t sprintf_newline(char *bufPtr, uint32_t bufIndx, uint32_t mode);
uint32_t sprn_nl(char *bufPtr, uint32_t bufIndx);
int get_key(void);
int rx_console_byte(void);
int get_key_m2m(void);
int key_m2m_ready(void);
int yesOrNoMenuChoice(const char *prompt, int default_response);
int kbhit(void);
int getchar_timed(uint32_t timeout);
int getUserInput(char *userInputBuffer, uint32_t userInputBufferSize);
int getUserInputTimeLimit(char *userInputBuffer, uint32_t userInputBufferSize, uint32_t timeLimit);
unsigned char getChar(void);
time_t getDateAndTime(void);
void print_time_t_Time(time_t time);
void printCurrentTime(void);
void printCurrentEpochTime(void);
void newline_test(void);
time_t get_RTC_time(void);
