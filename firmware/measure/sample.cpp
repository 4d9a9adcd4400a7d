// Sample cycle (to come): for now each routine names itself and changes nothing.
#include "measure/sample.h"
#include "console/user_io.h"

char prnBuf[PRN_BUF_SIZE];

void get_sample(int, int) {
    not_built_yet("get_sample");
}
void print_sampl(void) {
    not_built_yet("print_sampl");
}
void send_last_sample(void) {
    not_built_yet("send_last_sample");
}
void test_get_sample_timing(void) {
    not_built_yet("test_get_sample_timing");
}
void test_vrsi(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_vrsi");
}
void test_vrse(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_vrse");
}
void test_vtherm(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_vtherm");
}
void test_tempc(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_tempc");
}
void test_vk(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_vk");
}
void test_ik(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_ik");
}
void test_ib(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_ib");
}
void test_bias_bat(uint32_t, uint32_t, uint32_t, uint32_t) {
    not_built_yet("test_bias_bat");
}
void display_battery_boardSensors(void) {
    not_built_yet("display_battery_boardSensors");
}
