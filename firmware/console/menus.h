// Operator menus reached from the main menu.
#pragma once
#include <stdint.h>

void configuration_menu(void);
void test_menu(void);
void help_menu(void);
void wend_zone_menu(void);
void enter_deployment_note(uint32_t timeout);

// Prompt helpers shared by the menus. A menu left alone this long returns to
// its caller.
#define MENU_IDLE_SEC 60u
#define MENU_LINE_SIZE 48u
#define MENU_TEXT_SIZE 96u
// Reads a line within MENU_IDLE_SEC: its length, or -1 on time-out.
int menu_read_line(char *buf, uint32_t size);
// 1 when the last read timed out.
int menu_timed_out(void);
// Upper-cased first character; 0 for Enter alone, -1 on time-out.
int menu_key(void);
// Enter keeps enterDefault; a time-out answers no.
int menu_yes_no(const char *prompt, int enterDefault);
// Each shows the value in brackets, keeps it on Enter, time-out or a bad
// entry, and stores the record after a change. 1 when changed.
int menu_edit_u32(const char *label, uint32_t *value, uint32_t lo, uint32_t hi);
int menu_edit_u8(const char *label, uint8_t *value, uint32_t lo, uint32_t hi);
int menu_edit_float(const char *label, float *value);
int menu_edit_double(const char *label, double *value);
int menu_edit_text(const char *label, char *field, uint32_t width);
