// One buffered UART port: interrupt-driven transmit and receive rings, the
// receive line editing with echo, and the blocking and non-blocking accessors.
// The console (uartstdio) and the instrument ports uart2..uart7 are all built
// from this one template; each module only adds its pins and its power lines.
//
// Ring rules: N is a power of two, indices wrap with AND (N - 1); empty when
// read == write, full when write + 1 == read, so a ring holds N - 1 bytes.
// The handler writes the receive ring and reads the transmit ring, the
// foreground does the opposite, so each side moves only its own index.
// Flushes (both indices) run with interrupts masked. The console's transmit
// ring has a second writer, the echo of every handler, so bytes are queued
// with interrupts masked.
//
// Echo of received characters always goes to the console (UARTwrite): an
// operator sees an instrument's characters on the console, and the console
// sees its own.
#pragma once
#include <stdint.h>

#include "gpio.h"
#include "interrupt.h"
#include "sysctl.h"
#include "uart.h"

#include "board/uartstdio.h"

// Non-zero while one of the UART handlers runs. Console output taken from a
// handler must never wait for room in the ring.
extern volatile uint32_t g_uartIsrDepth;

// Pins and clock gates of one port.
struct UartPins {
    uint32_t periphUart;
    uint32_t periphGpio;
    uint32_t rxPinCfg; // GPIOPinConfigure selectors
    uint32_t txPinCfg;
    uint32_t pinTypePort; // port and pins given the UART pin type
    uint8_t pinTypePins;
};

template <uint32_t N, uint32_t Base, uint32_t Int> struct UartPort {
    static_assert(N >= 2 && (N & (N - 1u)) == 0u, "ring size must be a power of two");
    static constexpr uint32_t kMask = N - 1u;

    unsigned char g_pcUARTTxBuffer[N];
    unsigned char g_pcUARTRxBuffer[N];
    volatile uint32_t g_ui32UARTTxWriteIndex;
    volatile uint32_t g_ui32UARTTxReadIndex;
    volatile uint32_t g_ui32UARTRxWriteIndex;
    volatile uint32_t g_ui32UARTRxReadIndex;
    volatile unsigned char g_bDisableEcho; // 1 = raw receive: no echo, no line editing
    volatile unsigned char bLastWasCR;
    bool configured; // set-up done: the transmitter drains the ring

    // ---- ring arithmetic ------------------------------------------------
    static uint32_t count(uint32_t w, uint32_t r) { return (w - r) & kMask; }
    bool txEmpty() const { return g_ui32UARTTxWriteIndex == g_ui32UARTTxReadIndex; }
    bool txFull() const { return ((g_ui32UARTTxWriteIndex + 1u) & kMask) == g_ui32UARTTxReadIndex; }
    bool rxEmpty() const { return g_ui32UARTRxWriteIndex == g_ui32UARTRxReadIndex; }
    bool rxFull() const { return ((g_ui32UARTRxWriteIndex + 1u) & kMask) == g_ui32UARTRxReadIndex; }
    uint32_t txCount() const { return count(g_ui32UARTTxWriteIndex, g_ui32UARTTxReadIndex); }
    uint32_t rxCount() const { return count(g_ui32UARTRxWriteIndex, g_ui32UARTRxReadIndex); }

    // ---- set-up ---------------------------------------------------------
    // Clock gates, pin routing, the 16 MHz PIOSC as baud clock; echo off.
    void initPins(const UartPins &p) {
        SysCtlPeripheralEnable(p.periphUart);
        SysCtlPeripheralEnable(p.periphGpio);
        GPIOPinConfigure(p.rxPinCfg);
        GPIOPinConfigure(p.txPinCfg);
        GPIOPinTypeUART(p.pinTypePort, p.pinTypePins);
        UARTClockSourceSet(Base, UART_CLOCK_PIOSC);
        g_bDisableEcho = 1;
    }

    // 8N1 at the caller's baud rate, FIFO triggers at 1/8, rings emptied,
    // receive and receive time-out interrupts on, UART enabled.
    void setup(uint32_t periphUart, uint32_t baud, uint32_t srcClock) {
        if (!SysCtlPeripheralPresent(periphUart)) {
            return;
        }
        SysCtlPeripheralEnable(periphUart);
        UARTConfigSetExpClk(Base, srcClock, baud,
                            UART_CONFIG_WLEN_8 | UART_CONFIG_STOP_ONE | UART_CONFIG_PAR_NONE);
        UARTFIFOLevelSet(Base, UART_FIFO_TX1_8, UART_FIFO_RX1_8);
        flushRx();
        flushTx(true);
        UARTIntDisable(Base, 0xFFFFFFFFu);
        UARTIntEnable(Base, UART_INT_RX | UART_INT_RT);
        IntEnable(Int);
        UARTEnable(Base);
        configured = true;
    }

    void echoSet(bool on) { g_bDisableEcho = on ? 0u : 1u; }

    // ---- transmit -------------------------------------------------------
    // Move bytes from the ring into the hardware FIFO while both allow it.
    // The port's own interrupt is masked so the handler cannot prime too.
    void prime() {
        if (txEmpty()) {
            return;
        }
        IntDisable(Int);
        while (UARTSpaceAvail(Base) && !txEmpty()) {
            UARTCharPutNonBlocking(Base, g_pcUARTTxBuffer[g_ui32UARTTxReadIndex]);
            g_ui32UARTTxReadIndex = (g_ui32UARTTxReadIndex + 1u) & kMask;
        }
        IntEnable(Int);
    }

    void kick() {
        if (!txEmpty()) {
            prime();
            UARTIntEnable(Base, UART_INT_TX);
        }
    }

    // Room for one byte. With canWait the foreground sleeps, interrupts on,
    // until the transmitter has made room; otherwise a full ring refuses it.
    // Called with interrupts masked, and returns so.
    bool room(bool canWait) {
        if (!txFull()) {
            return true;
        }
        if (!canWait) {
            return false;
        }
        IntMasterEnable();
        while (txFull()) {
            prime();
            UARTIntEnable(Base, UART_INT_TX);
            SysCtlSleep();
        }
        IntMasterDisable();
        return true;
    }

    void put(unsigned char c) {
        g_pcUARTTxBuffer[g_ui32UARTTxWriteIndex] = c;
        g_ui32UARTTxWriteIndex = (g_ui32UARTTxWriteIndex + 1u) & kMask;
    }

    // The handlers' echo queues console text too, so bytes go in with
    // interrupts masked. Waiting needs the foreground with interrupts on.
    bool beginQueue(bool mayWait, bool *wasMasked) {
        *wasMasked = IntMasterDisable();
        return mayWait && configured && g_uartIsrDepth == 0u && !*wasMasked;
    }

    void endQueue(bool wasMasked) {
        if (!wasMasked) {
            IntMasterEnable();
        }
        kick();
    }

    // Queue bytes with a carriage return before each line feed; returns the
    // caller's bytes taken (inserted returns are not counted). At the first
    // byte that does not fit the rest is dropped. keepCrLf: a line feed that
    // follows a carriage return in the same text gets no second one.
    int write(const unsigned char *buf, uint32_t len, bool mayWait, bool keepCrLf) {
        bool wasMasked;
        bool canWait = beginQueue(mayWait, &wasMasked);
        uint32_t i = 0;
        for (; buf != nullptr && i < len; i++) {
            if (buf[i] == '\n' && !(keepCrLf && i > 0u && buf[i - 1u] == '\r')) {
                if (!room(canWait)) {
                    break;
                }
                put('\r');
            }
            if (!room(canWait)) {
                break;
            }
            put(buf[i]);
        }
        endQueue(wasMasked);
        return (int)i;
    }

    // One raw byte (no conversion); dropped when the ring stays full.
    void txByte(unsigned char c, bool mayWait) {
        bool wasMasked;
        if (room(beginQueue(mayWait, &wasMasked))) {
            put(c);
        }
        endQueue(wasMasked);
    }

    void flushTx(bool discard) {
        if (discard) {
            bool wasMasked = IntMasterDisable();
            g_ui32UARTTxWriteIndex = 0;
            g_ui32UARTTxReadIndex = 0;
            if (!wasMasked) {
                IntMasterEnable();
            }
            return;
        }
        // An unconfigured port never drains: nothing to wait for.
        while (configured && !txEmpty()) {
            prime();
            UARTIntEnable(Base, UART_INT_TX);
            SysCtlSleep();
        }
    }

    // One more than can really be queued; the callers are used to it.
    int txFree() const { return (int)(N - txCount()); }

    // ---- receive --------------------------------------------------------
    void flushRx() {
        bool wasMasked = IntMasterDisable();
        g_ui32UARTRxWriteIndex = 0;
        g_ui32UARTRxReadIndex = 0;
        if (!wasMasked) {
            IntMasterEnable();
        }
    }

    int rxAvail() const { return (int)rxCount(); }

    unsigned char rxByte() {
        while (rxEmpty()) {
            SysCtlSleep();
        }
        unsigned char c = g_pcUARTRxBuffer[g_ui32UARTRxReadIndex];
        g_ui32UARTRxReadIndex = (g_ui32UARTRxReadIndex + 1u) & kMask;
        return c;
    }

    // Position (0 = oldest) of the first buffered c, or -1; consumes nothing.
    int peek(unsigned char c) const {
        uint32_t n = rxCount();
        uint32_t r = g_ui32UARTRxReadIndex;
        for (uint32_t k = 0; k < n; k++) {
            if (g_pcUARTRxBuffer[(r + k) & kMask] == c) {
                return (int)k;
            }
        }
        return -1;
    }

    // Blocking line read up to CR or LF (consumed, not stored). At most
    // len - 1 bytes are stored; the rest of a long line is consumed.
    int rxStr(unsigned char *buf, uint32_t len) {
        uint32_t n = 0;
        for (;;) {
            unsigned char c = rxByte();
            if (c == '\r' || c == '\n') {
                break;
            }
            if (buf != nullptr && n + 1u < len) {
                buf[n++] = c;
            }
        }
        if (buf != nullptr && len > 0u) {
            buf[n] = 0;
        }
        return (int)n;
    }

    // Blocking read of exactly len bytes, then one more byte is taken and
    // thrown away (the instrument drivers count on it).
    int rxBuf(unsigned char *buf, uint32_t len) {
        for (uint32_t i = 0; i < len; i++) {
            unsigned char c = rxByte();
            if (buf != nullptr) {
                buf[i] = c;
            }
        }
        (void)rxByte();
        return (int)len;
    }

    // ---- interrupt handler ----------------------------------------------
    void store(unsigned char c) {
        g_pcUARTRxBuffer[g_ui32UARTRxWriteIndex] = c;
        g_ui32UARTRxWriteIndex = (g_ui32UARTRxWriteIndex + 1u) & kMask;
    }

    void receive(unsigned char c) {
        if (g_bDisableEcho) {
            if (!rxFull()) {
                store(c);
            }
            return;
        }
        if (c == '\b') {
            if (!rxEmpty()) {
                UARTwrite("\b \b", 3);
                g_ui32UARTRxWriteIndex = (g_ui32UARTRxWriteIndex - 1u) & kMask;
            }
            return;
        }
        if (c == '\n' && bLastWasCR) {
            bLastWasCR = 0;
            return;
        }
        if (c == '\r') {
            bLastWasCR = 1;
        }
        if (c == '\r' || c == '\n' || c == 0x1B) {
            UARTwrite("\n", 1);
            if (!rxFull()) {
                store(c);
                UARTwrite("\r", 1);
            }
            return;
        }
        if (!rxFull()) {
            store(c);
            UARTwrite((const char *)&c, 1);
        }
    }

    void isr() {
        g_uartIsrDepth = g_uartIsrDepth + 1u;
        uint32_t status = UARTIntStatus(Base, true);
        UARTIntClear(Base, status);
        if (status & UART_INT_TX) {
            prime();
            if (txEmpty()) {
                UARTIntDisable(Base, UART_INT_TX);
            }
        }
        if (status & (UART_INT_RX | UART_INT_RT)) {
            while (UARTCharsAvail(Base)) {
                int32_t v = UARTCharGetNonBlocking(Base);
                if (v < 0) {
                    break;
                }
                receive((unsigned char)v);
            }
            prime();
            UARTIntEnable(Base, UART_INT_TX);
        }
        g_uartIsrDepth = g_uartIsrDepth - 1u;
    }
};

// The operations every port module offers under its own prefix, forwarding
// to its UartPort object. init, port_open, port_close and the state machine
// dispatchers differ per port and are written in each module.
#define UART_PORT_OPERATIONS(prefix, port, periph)                                                 \
    void prefix##_setup(uint32_t ui32Baud, uint32_t ui32SrcClock) {                                \
        port.setup(periph, ui32Baud, ui32SrcClock);                                                \
    }                                                                                              \
    void prefix##_echo_set(uint8_t on) {                                                           \
        port.g_bDisableEcho = (unsigned char)(on ^ 1u);                                            \
    }                                                                                              \
    int prefix##_write(const unsigned char *pcBuf, uint32_t ui32Len) {                             \
        return port.write(pcBuf, ui32Len, false, false);                                           \
    }                                                                                              \
    int prefix##_write(const char *pcBuf, uint32_t ui32Len) {                                      \
        return port.write((const unsigned char *)pcBuf, ui32Len, false, false);                    \
    }                                                                                              \
    void prefix##_tx_byte(int c) {                                                                 \
        port.txByte((unsigned char)c, false);                                                      \
    }                                                                                              \
    void prefix##_tx_bufr_flush(int discard) {                                                     \
        port.flushTx(discard != 0);                                                                \
    }                                                                                              \
    int prefix##_tx_bufr_bytes_free(void) {                                                        \
        return port.txFree();                                                                      \
    }                                                                                              \
    int prefix##_rx_bytes_avail(void) {                                                            \
        return port.rxAvail();                                                                     \
    }                                                                                              \
    void prefix##_rx_bufr_flush(void) {                                                            \
        port.flushRx();                                                                            \
    }                                                                                              \
    int prefix##_rx_byte(void) {                                                                   \
        return port.rxByte();                                                                      \
    }                                                                                              \
    int prefix##_rx_bufr_peek(int ucChar) {                                                        \
        return port.peek((unsigned char)ucChar);                                                   \
    }                                                                                              \
    int prefix##_rx_str(unsigned char *pcBuf, uint32_t ui32Len) {                                  \
        return port.rxStr(pcBuf, ui32Len);                                                         \
    }                                                                                              \
    int prefix##_rx_buf(unsigned char *pcBuf, uint32_t ui32Len) {                                  \
        return port.rxBuf(pcBuf, ui32Len);                                                         \
    }                                                                                              \
    void prefix##_isr(void) {                                                                      \
        port.isr();                                                                                \
    }
