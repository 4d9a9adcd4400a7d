// Operator menus reached from the main menu.
#pragma once
#include <stdint.h>

void configuration_menu(void);
void test_menu(void);
void help_menu(void);
void wend_zone_menu(void);
void enter_deployment_note(uint32_t timeout);
