// I2C0 master: bus clock, and the single-step controller calls the firmware
// builds its transactions from (address, data, command, status). Owns no
// device protocol; the devices' modules do.
//
// Status follows the driver library: I2CMasterErr reports the address or
// data not-acknowledge and lost arbitration of the last step, nothing while
// the controller is still busy.
#include "chip.h"
#include "i2c.h"

namespace {

using chip::reg;

constexpr uint32_t I2C_O_MSA = 0x000u;
constexpr uint32_t I2C_O_MCS = 0x004u;
constexpr uint32_t I2C_O_MDR = 0x008u;
constexpr uint32_t I2C_O_MTPR = 0x00Cu;
constexpr uint32_t I2C_O_MCR = 0x020u;

constexpr uint32_t MCS_BUSY = 0x01u;
constexpr uint32_t MCS_ERROR = 0x02u;
constexpr uint32_t MCS_ADRACK = 0x04u;
constexpr uint32_t MCS_DATACK = 0x08u;
constexpr uint32_t MCS_ARBLST = 0x10u;
constexpr uint32_t MCS_BUSBSY = 0x40u;
constexpr uint32_t MCS_CLKTO = 0x80u;
constexpr uint32_t MCR_MFE = 0x10u;

// SCL period = 2 * (SCL_LP + SCL_HP) * (1 + TPR) system clocks, with the
// fixed low and high phases of 6 and 4 clocks.
constexpr uint32_t SCL_PHASE_CLOCKS = 2u * (6u + 4u);

// The BUSY flag rises a few clocks after a command is written, so a poll
// right after the write could see a step as done before it began.
constexpr uint32_t BUSY_RISE_POLLS = 64u;
// One step takes about 100 us at 100 kHz (a few hundred polls). A slave
// holding SCL low keeps the controller busy for good: after this many polls
// of one step (some 50 ms) the step is reported finished with a clock
// time-out, so the firmware's poll loops end.
constexpr uint32_t BUSY_POLLS_MAX = 250000u;

uint32_t g_busyPolls = 0;
bool g_stepTimedOut = false;

} // namespace

void I2CMasterInitExpClk(uint32_t base, uint32_t i2cClk, bool fast) {
    I2CMasterEnable(base);
    const uint32_t scl = fast ? 400000u : 100000u;
    const uint32_t per = SCL_PHASE_CLOCKS * scl;
    uint32_t tpr = (i2cClk + per - 1u) / per; // round up: never faster than asked
    tpr = tpr == 0u ? 0u : tpr - 1u;
    reg(base + I2C_O_MTPR) = tpr & 0x7Fu;
}

void I2CMasterEnable(uint32_t base) {
    reg(base + I2C_O_MCR) = reg(base + I2C_O_MCR) | MCR_MFE;
}

void I2CMasterSlaveAddrSet(uint32_t base, uint8_t slaveAddr, bool receive) {
    reg(base + I2C_O_MSA) = ((uint32_t)slaveAddr << 1) | (receive ? 1u : 0u);
}

void I2CMasterDataPut(uint32_t base, uint8_t data) {
    reg(base + I2C_O_MDR) = data;
}

uint32_t I2CMasterDataGet(uint32_t base) {
    return reg(base + I2C_O_MDR) & 0xFFu;
}

void I2CMasterControl(uint32_t base, uint32_t cmd) {
    g_busyPolls = 0;
    g_stepTimedOut = false;
    reg(base + I2C_O_MCS) = cmd;
    if (chip::kEmulator) {
        return; // the model completes each step at once
    }
    for (uint32_t i = 0; i < BUSY_RISE_POLLS && (reg(base + I2C_O_MCS) & MCS_BUSY) == 0u; i++) {
    }
}

bool I2CMasterBusy(uint32_t base) {
    if ((reg(base + I2C_O_MCS) & MCS_BUSY) == 0u || g_stepTimedOut) {
        return false;
    }
    if (++g_busyPolls < BUSY_POLLS_MAX) {
        return true;
    }
    g_stepTimedOut = true;
    return false;
}

bool I2CMasterBusBusy(uint32_t base) {
    return (reg(base + I2C_O_MCS) & MCS_BUSBSY) != 0u;
}

uint32_t I2CMasterErr(uint32_t base) {
    if (g_stepTimedOut) {
        return MCS_CLKTO;
    }
    const uint32_t mcs = reg(base + I2C_O_MCS);
    if ((mcs & MCS_BUSY) != 0u || (mcs & (MCS_ERROR | MCS_ARBLST)) == 0u) {
        return I2C_MASTER_ERR_NONE;
    }
    uint32_t err = mcs & (MCS_ARBLST | MCS_DATACK | MCS_ADRACK | MCS_CLKTO);
    // The emulator's controller reports a start nobody acknowledged as lost
    // arbitration; with one master on the bus that can only mean no device.
    if (chip::kEmulator && (err & MCS_ARBLST) != 0u) {
        err = (err & ~MCS_ARBLST) | MCS_ADRACK;
    }
    return err;
}
