// Synchronous serial ports SSI0 (the card) and SSI3 (the ADC) as SPI
// masters: frame format, bit rate and the FIFO data calls. Chip selects are
// plain GPIO lines driven by the board code.
//
// A port the part lacks (SSI3 on the emulated part) acts as a bus with
// nothing connected: words sent are dropped, nothing is received by the
// non-blocking read, a blocking read returns the idle line (all ones), and
// the port is never busy.
#include "chip.h"
#include "ssi.h"

namespace {

using chip::reg;

constexpr uint32_t SSI_O_CR0 = 0x000u;
constexpr uint32_t SSI_O_CR1 = 0x004u;
constexpr uint32_t SSI_O_DR = 0x008u;
constexpr uint32_t SSI_O_SR = 0x00Cu;
constexpr uint32_t SSI_O_CPSR = 0x010u;

constexpr uint32_t CR1_SSE = 0x02u;
constexpr uint32_t CR1_MS = 0x04u; // slave
constexpr uint32_t SR_BSY = 0x10u;
constexpr uint32_t SR_RNE = 0x04u;
constexpr uint32_t SR_TNF = 0x02u;
constexpr uint32_t SSI_MODE_SLAVE = 0x00000001u;
constexpr uint32_t PROTOCOL_FRF_M = 0x30u; // frame format bits of the protocol code

// At the slowest bit rate one 16-bit frame takes about 80 ms; a poll is a
// few cycles, so this bounds a wait on a stopped port to roughly a second.
constexpr uint32_t FIFO_POLLS = 10000000u;

bool absent(uint32_t base) {
    return !chip::has_ssi(base);
}

uint32_t idle_word(uint32_t base) {
    if (absent(base)) {
        return 0xFFu;
    }
    const uint32_t dss = reg(base + SSI_O_CR0) & 0xFu;
    return (2u << dss) - 1u;
}

bool wait_status(uint32_t base, uint32_t mask) {
    for (uint32_t i = 0; i < FIFO_POLLS; i++) {
        if ((reg(base + SSI_O_SR) & mask) != 0u) {
            return true;
        }
    }
    return false;
}

} // namespace

// Bit rate = clk / (CPSDVSR * (1 + SCR)) with an even CPSDVSR of 2..254 and
// SCR of 0..255, chosen so the rate never exceeds the one asked for (a card
// must be initialised at no more than 400 kHz).
void SSIConfigSetExpClk(uint32_t base, uint32_t clk, uint32_t protocol, uint32_t mode,
                        uint32_t bitRate, uint32_t dataWidth) {
    if (absent(base) || bitRate == 0u || dataWidth < 4u || dataWidth > 16u) {
        return;
    }
    const uint32_t div = (clk + bitRate - 1u) / bitRate;
    uint32_t prescale = 2u;
    while (prescale < 254u && (div + prescale - 1u) / prescale > 256u) {
        prescale += 2u;
    }
    uint32_t scr = (div + prescale - 1u) / prescale;
    scr = scr == 0u ? 0u : scr - 1u;
    if (scr > 255u) {
        scr = 255u;
    }

    reg(base + SSI_O_CR1) = mode == SSI_MODE_SLAVE ? CR1_MS : 0u; // also stops the port
    reg(base + SSI_O_CPSR) = prescale;
    // Motorola modes 0..3 code SPH and SPO in bits 1:0 of the protocol.
    reg(base + SSI_O_CR0) =
        (scr << 8) | ((protocol & 0x3u) << 6) | (protocol & PROTOCOL_FRF_M) | (dataWidth - 1u);
}

void SSIEnable(uint32_t base) {
    if (absent(base)) {
        return;
    }
    reg(base + SSI_O_CR1) = reg(base + SSI_O_CR1) | CR1_SSE;
}

void SSIDisable(uint32_t base) {
    if (absent(base)) {
        return;
    }
    reg(base + SSI_O_CR1) = reg(base + SSI_O_CR1) & ~CR1_SSE;
}

// Waits for room in the transmit FIFO; a port that never makes room (stopped)
// drops the word after the bound instead of hanging the instrument.
void SSIDataPut(uint32_t base, uint32_t data) {
    if (absent(base)) {
        return;
    }
    if (wait_status(base, SR_TNF)) {
        reg(base + SSI_O_DR) = data;
    }
}

int32_t SSIDataPutNonBlocking(uint32_t base, uint32_t data) {
    if (absent(base)) {
        return 1;
    }
    if ((reg(base + SSI_O_SR) & SR_TNF) == 0u) {
        return 0;
    }
    reg(base + SSI_O_DR) = data;
    return 1;
}

// Waits for a received word; when none ever comes the idle line is returned.
void SSIDataGet(uint32_t base, uint32_t *data) {
    if (!absent(base) && wait_status(base, SR_RNE)) {
        *data = reg(base + SSI_O_DR);
        return;
    }
    *data = idle_word(base);
}

int32_t SSIDataGetNonBlocking(uint32_t base, uint32_t *data) {
    if (absent(base) || (reg(base + SSI_O_SR) & SR_RNE) == 0u) {
        return 0;
    }
    *data = reg(base + SSI_O_DR);
    return 1;
}

// A stopped port with words in its FIFO would read busy for ever; it shifts
// nothing, so it is not busy.
bool SSIBusy(uint32_t base) {
    if (absent(base) || (reg(base + SSI_O_CR1) & CR1_SSE) == 0u) {
        return false;
    }
    return (reg(base + SSI_O_SR) & SR_BSY) != 0u;
}
