// PCAL6416 16-bit I/O expander on the baseboard (I2C 0x20). Port 0 drives the
// power switches of the spectrometer, pump and lamp; port 1 is all inputs.
// The output ports are never read back: shadows keep what was last written,
// and one bit is changed by rewriting the whole port from its shadow.
#include "board/i2c_pcal64xx.h"

#include <stddef.h>

#include "board/i2c0.h"
#include "console/user_io.h"
#include "i2c.h"

#define PCAL6416_PORT0_ALL_OUTPUTS 0x00u
#define PCAL6416_PORT1_ALL_INPUTS 0xFFu
#define PCAL6416_MENU_TIMEOUT_S 300u // an idle test menu goes back to its caller

uint8_t pcal6416_shadow_port0 = 0;
uint8_t pcal6416_shadow_port1 = 0;

namespace {

struct MenuSwitch {
    char key; // upper case switches on, lower case off
    uint8_t bit;
    const char *name;
};

const MenuSwitch kSwitches[] = {
    {'A', PCAL6416_SPEC_PWR, "Spec Pwr"},
    {'B', PCAL6416_PUMP_PWR, "Pump Pwr"},
    {'C', PCAL6416_LAMP_PWR, "Lamp Pwr"},
    {'F', PCAL6416_LAMP_SHUTTER, "Lamp Shutter"},
    {'G', PCAL6416_SPEC_RS232_EN, "Spec rs232 Enable"},
    {'H', PCAL6416_SPARE_PIN2, "Spare pin 2"},
};

void print_menu(void) {
    uprintf("\r\n\r\n--- PCAL6416 I/O expander ---\r\n");
    for (const MenuSwitch &s : kSwitches) {
        uprintf("  %c/%c -- %s\r\n", s.key, s.key - 'A' + 'a', s.name);
    }
    uprintf("  T   -- PCAL6416 dev test\r\n");
    uprintf("  9 -- Exit to Main Menu\r\n");
    uprintf("\r\nPort 0 = 0x%02x  Port 1 = 0x%02x\r\nSelection: ", pcal6416_shadow_port0,
            pcal6416_shadow_port1);
}

// Presence, then every standard register as the part reports it.
void dev_test(void) {
    if (pcal6416_probe(PCAL6416_I2C_ADDR) == 0) {
        uprintf("PCAL6416 not found at 0x%02x\r\n", PCAL6416_I2C_ADDR);
        return;
    }
    uprintf("PCAL6416 found at 0x%02x\r\n", PCAL6416_I2C_ADDR);
    for (uint8_t reg = PCAL6416_REG_INPUT0; reg <= PCAL6416_REG_CONFIG1; reg++) {
        uint8_t v = 0;
        if (pcal6416_read_reg(reg, &v) != 0) {
            uprintf("  reg %u: no answer\r\n", reg);
            continue;
        }
        uprintf("  reg %u = 0x%02x\r\n", reg, v);
    }
    uint8_t out0 = 0;
    if (pcal6416_read_reg(PCAL6416_REG_OUTPUT0, &out0) == 0 && out0 != pcal6416_shadow_port0) {
        uprintf("  output port 0 reads 0x%02x, shadow 0x%02x\r\n", out0, pcal6416_shadow_port0);
    }
}

} // namespace

int pcal6416_probe(int i2cAddr) {
    while (I2CMasterBusBusy(I2C0_BASE)) {
        uprintf("\r\nI2C0 Bus busy, pcal6416_probe\r\n");
    }
    return i2c0_addr_ack((uint8_t)i2cAddr);
}

void pcal6416_init(void) {
    if (pcal6416_probe(PCAL6416_I2C_ADDR) == 0) {
        uprintf("PCAL6416 not found at 0x%02x\r\n", PCAL6416_I2C_ADDR);
    }
    (void)i2c0_reg_write(PCAL6416_I2C_ADDR, PCAL6416_REG_CONFIG0, PCAL6416_PORT0_ALL_OUTPUTS);
    (void)i2c0_reg_write(PCAL6416_I2C_ADDR, PCAL6416_REG_CONFIG1, PCAL6416_PORT1_ALL_INPUTS);
    pcal6416_shadow_port0 = 0;
    pcal6416_shadow_port1 = 0;
    (void)i2c0_reg_write(PCAL6416_I2C_ADDR, PCAL6416_REG_OUTPUT0, 0);
}

void pcal6416_write_port_bit(int regNum, int bitMask, uint32_t state) {
    if ((regNum != PCAL6416_REG_OUTPUT0 && regNum != PCAL6416_REG_OUTPUT1) || state > 1u) {
        return;
    }
    uint8_t *shadow =
        regNum == PCAL6416_REG_OUTPUT0 ? &pcal6416_shadow_port0 : &pcal6416_shadow_port1;
    if (state == 1u) {
        *shadow = (uint8_t)(*shadow | bitMask);
    } else {
        *shadow = (uint8_t)(*shadow & ~bitMask);
    }
    (void)i2c0_reg_write(PCAL6416_I2C_ADDR, (uint8_t)regNum, *shadow);
}

int pcal6416_read_reg(uint8_t regNum, uint8_t *value) {
    return i2c0_reg_read(PCAL6416_I2C_ADDR, regNum, value, 1);
}

void pcal6416_test_menu(void) {
    char line[16];
    for (;;) {
        print_menu();
        int n = getUserInputTimeLimit(line, sizeof(line), PCAL6416_MENU_TIMEOUT_S);
        if (n < 0) {
            prn_nl();
            return;
        }
        if (n == 0) {
            continue;
        }
        char key = line[0];
        if (key == '9') {
            return;
        }
        if (key == 'T' || key == 't') {
            prn_nl();
            dev_test();
            continue;
        }
        for (const MenuSwitch &s : kSwitches) {
            bool on = key == s.key;
            if (on || key == s.key - 'A' + 'a') {
                pcal6416_write_port_bit(PCAL6416_REG_OUTPUT0, s.bit, on ? 1u : 0u);
                uprintf("\r\n%s %s\r\n", s.name, on ? "on" : "off");
            }
        }
    }
}
