// UARTs 0 and 2..7: baud rate, frame format, FIFO levels, interrupt masks
// and the FIFO status and data calls. Owns no buffering: the firmware's
// ports keep their rings and run the handlers.
//
// A UART the part lacks (UART3..7 on the emulated part) acts as a port with
// nothing connected: bytes offered are taken and dropped, nothing arrives,
// the transmitter is never busy.
#include "chip.h"
#include "uart.h"

namespace {

using chip::reg;

constexpr uint32_t UART_O_DR = 0x000u;
constexpr uint32_t UART_O_FR = 0x018u;
constexpr uint32_t UART_O_IBRD = 0x024u;
constexpr uint32_t UART_O_FBRD = 0x028u;
constexpr uint32_t UART_O_LCRH = 0x02Cu;
constexpr uint32_t UART_O_CTL = 0x030u;
constexpr uint32_t UART_O_IFLS = 0x034u;
constexpr uint32_t UART_O_IM = 0x038u;
constexpr uint32_t UART_O_RIS = 0x03Cu;
constexpr uint32_t UART_O_MIS = 0x040u;
constexpr uint32_t UART_O_ICR = 0x044u;
constexpr uint32_t UART_O_CC = 0xFC8u;

constexpr uint32_t FR_TXFF = 0x20u;
constexpr uint32_t FR_RXFE = 0x10u;
constexpr uint32_t FR_BUSY = 0x08u;
constexpr uint32_t LCRH_FEN = 0x10u;
constexpr uint32_t LCRH_FRAME_M = 0xEEu; // SPS, WLEN, STP2, EPS, PEN
constexpr uint32_t CTL_UARTEN = 0x001u;
constexpr uint32_t CTL_HSE = 0x020u;
constexpr uint32_t CTL_TXE = 0x100u;
constexpr uint32_t CTL_RXE = 0x200u;

// A full 16-byte FIFO at 1200 baud drains in about 150 ms; a poll takes a
// few cycles, so this bound is well over a second at 50 MHz.
constexpr uint32_t DRAIN_POLLS = 20000000u;

bool absent(uint32_t base) {
    return !chip::has_uart(base);
}

} // namespace

// Stops the UART, sets the divisor from the UART's clock in 64ths (rounded
// to nearest) and the frame, and starts it again with the FIFOs on.
void UARTConfigSetExpClk(uint32_t base, uint32_t uartClk, uint32_t baud, uint32_t config) {
    if (absent(base) || baud == 0u) {
        return;
    }
    UARTDisable(base);
    uint32_t clk = uartClk;
    uint32_t ctl = reg(base + UART_O_CTL) & ~CTL_HSE;
    // Above clock/16 only the 8x oversampling mode reaches the rate.
    if (baud * 16u > uartClk) {
        ctl |= CTL_HSE;
        clk = uartClk * 2u;
    }
    reg(base + UART_O_CTL) = ctl;
    const uint32_t div64 = ((clk * 8u) / baud + 1u) / 2u; // clk*4/baud, rounded
    reg(base + UART_O_IBRD) = div64 / 64u;
    reg(base + UART_O_FBRD) = div64 % 64u;
    // The divisor takes effect with the next LCRH write.
    reg(base + UART_O_LCRH) = config & LCRH_FRAME_M;
    UARTEnable(base);
}

// The emulated part has no clock selection (the model ignores it anyway).
void UARTClockSourceSet(uint32_t base, uint32_t source) {
    if (absent(base) || chip::kEmulator) {
        return;
    }
    reg(base + UART_O_CC) = source;
}

void UARTFIFOLevelSet(uint32_t base, uint32_t txLevel, uint32_t rxLevel) {
    if (absent(base)) {
        return;
    }
    reg(base + UART_O_IFLS) = txLevel | rxLevel;
}

void UARTEnable(uint32_t base) {
    if (absent(base)) {
        return;
    }
    reg(base + UART_O_LCRH) = reg(base + UART_O_LCRH) | LCRH_FEN;
    reg(base + UART_O_CTL) = reg(base + UART_O_CTL) | CTL_UARTEN | CTL_TXE | CTL_RXE;
}

// Lets the byte in the shifter go out first, so a reconfiguration does not
// cut a character in half.
void UARTDisable(uint32_t base) {
    if (absent(base)) {
        return;
    }
    for (uint32_t i = 0; i < DRAIN_POLLS && (reg(base + UART_O_FR) & FR_BUSY) != 0u; i++) {
    }
    reg(base + UART_O_LCRH) = reg(base + UART_O_LCRH) & ~LCRH_FEN;
    reg(base + UART_O_CTL) = reg(base + UART_O_CTL) & ~(CTL_UARTEN | CTL_TXE | CTL_RXE);
}

void UARTIntEnable(uint32_t base, uint32_t intFlags) {
    if (absent(base)) {
        return;
    }
    reg(base + UART_O_IM) = reg(base + UART_O_IM) | intFlags;
}

void UARTIntDisable(uint32_t base, uint32_t intFlags) {
    if (absent(base)) {
        return;
    }
    reg(base + UART_O_IM) = reg(base + UART_O_IM) & ~intFlags;
}

uint32_t UARTIntStatus(uint32_t base, bool masked) {
    if (absent(base)) {
        return 0u;
    }
    return reg(base + (masked ? UART_O_MIS : UART_O_RIS));
}

void UARTIntClear(uint32_t base, uint32_t intFlags) {
    if (absent(base)) {
        return;
    }
    reg(base + UART_O_ICR) = intFlags;
}

bool UARTCharsAvail(uint32_t base) {
    if (absent(base)) {
        return false;
    }
    return (reg(base + UART_O_FR) & FR_RXFE) == 0u;
}

// The whole data register: the character in bits 7:0, its receive errors
// above.
int32_t UARTCharGetNonBlocking(uint32_t base) {
    if (!UARTCharsAvail(base)) {
        return -1;
    }
    return (int32_t)reg(base + UART_O_DR);
}

bool UARTSpaceAvail(uint32_t base) {
    if (absent(base)) {
        return true;
    }
    return (reg(base + UART_O_FR) & FR_TXFF) == 0u;
}

bool UARTCharPutNonBlocking(uint32_t base, unsigned char data) {
    if (absent(base)) {
        return true;
    }
    if ((reg(base + UART_O_FR) & FR_TXFF) != 0u) {
        return false;
    }
    reg(base + UART_O_DR) = data;
    return true;
}

bool UARTBusy(uint32_t base) {
    if (absent(base)) {
        return false;
    }
    return (reg(base + UART_O_FR) & FR_BUSY) != 0u;
}
