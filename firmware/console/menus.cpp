// Operator menus (to come).
#include "console/menus.h"
#include "console/user_io.h"

void configuration_menu(void) {
    not_built_yet("configuration_menu");
}
void test_menu(void) {
    not_built_yet("test_menu");
}
void help_menu(void) {
    not_built_yet("help_menu");
}
void wend_zone_menu(void) {
    not_built_yet("wend_zone_menu");
}
void enter_deployment_note(uint32_t) {
    not_built_yet("enter_deployment_note");
}
