// Board support on the simulated board: UART rings and line editing, FRAM
// transfers on the bus, watchdog, LEDs, card detect, supply notices, stopwatches.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "scenario.h"
#include "sim.h"
#include "typist.h"

#include "board/board_util.h"
#include "board/i2c0.h"
#include "board/i2c_fram.h"
#include "board/uart3.h"
#include "board/uart4.h"
#include "board/uartstdio.h"
#include "core/system.h"
#include "gpio.h"
#include "host/apf_util.h"
#include "interrupt.h"
#include "sysctl.h"

namespace {

int g_petPulses = 0; // rising edges of the watchdog's pet line

uint8_t port_f() {
    return sim::gpio_levels(GPIO_PORTF_BASE);
}

class BoardTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bench::power_up();
        uart3_tx_bufr_flush(1);
        uart3_rx_bufr_flush();
        UARTEchoSet(true);
        sys_data.app_cfg[APPCFG_NEWLINE_MODE] = 0;
        static uint8_t petLine = 0;
        sim::watch_gpio([](uint32_t port, uint8_t pins, uint8_t levels) {
            if (port == GPIO_PORTF_BASE && (pins & GPIO_PIN_1) != 0) {
                g_petPulses += (levels & ~petLine & GPIO_PIN_1) != 0;
                petLine = levels & GPIO_PIN_1;
            }
        });
        inst = std::make_shared<sim::Typist>(std::vector<sim::Typist::Step>{}, 5, 9600);
        sim::attach_serial(UART3_BASE, inst);
        uart3_init();
        uart3_setup(9600, 16000000);
        // A CR LF leaves the line-end memory of both handlers cleared.
        uart3_echo_set(1);
        inst->type("\r\n");
        sim::console_feed("\r\n");
        sim::advance_ms(20);
        uart3_rx_bufr_flush();
        UARTFlushRx();
        uart3_echo_set(0);
        sim::console_take();
    }

    // What waits in a receive ring, taken out.
    template <class Avail, class Get> static std::string drain(Avail avail, Get get) {
        std::string s;
        while (avail() > 0) {
            s += (char)get();
        }
        return s;
    }
    static std::string uart3_ring() { return drain(uart3_rx_bytes_avail, uart3_rx_byte); }
    static std::string console_ring() { return drain(UARTRxBytesAvail, UARTgetc); }

    std::shared_ptr<sim::Typist> inst; // the instrument on port 3
};

struct EchoCase {
    const char *in;
    std::string ring;
    std::string console;
};

const std::vector<EchoCase> kEchoCases = {
    {"ab\bc\r\n", "ac\r", "ab\b \bc\r\n\r"},
    {"\n", "\n", "\r\n\r"},
    {"\x1b", "\x1b", "\r\n\r"},
    {"x\ry\n", "x\ry", "x\r\n\ry"}, // the LF after a CR is dropped even later on
    {"\r\r\n", "\r\r", "\r\n\r\r\n\r"},
    {"\b", "", ""}, // nothing to rub out
    {"q\b\b", "", "q\b \b"},
};

// Both ports echo and edit lines to the console, never back to the instrument.
TEST_F(BoardTest, EchoAndLineEditingOfBothPorts) {
    for (bool instrument : {true, false}) {
        for (const auto &c : kEchoCases) {
            SetUp();
            uart3_echo_set(instrument ? 1 : 0);
            instrument ? inst->type(c.in) : sim::console_feed(c.in);
            sim::advance_ms(50);
            EXPECT_EQ(instrument ? uart3_ring() : console_ring(), c.ring) << c.in;
            EXPECT_EQ(sim::console_take(), c.console) << c.in;
            EXPECT_EQ(inst->seen, "") << c.in;
        }
    }
}

TEST_F(BoardTest, RingsHoldOneLessThanTheirSize) {
    std::string in;
    for (int i = 0; i < 64; i++) {
        in += (char)('0' + i);
    }
    inst->type(in);
    sim::advance_ms(100);
    EXPECT_EQ(uart3_rx_bytes_avail(), 63);
    EXPECT_EQ(uart3_ring(), in.substr(0, 63));

    UARTEchoSet(false);
    sim::console_feed(std::string(2100, 'k'));
    sim::advance_ms(250);
    EXPECT_EQ(UARTRxBytesAvail(), 2047);
    EXPECT_EQ(sim::console_take(), "") << "no echo with echo off";
}

TEST_F(BoardTest, InstrumentPortWriteInsertsCarriageReturnsAndDropsWhenFull) {
    EXPECT_EQ(uart3_tx_bufr_bytes_free(), 64); // one more than fits
    EXPECT_EQ(uart3_write("a\nb", 3), 3);
    EXPECT_EQ(uart3_write("\r\n", 2), 2);
    uart3_tx_byte('\n');
    uart3_tx_bufr_flush(0);
    sim::advance_ms(20);
    EXPECT_EQ(inst->seen, "a\r\nb\r\r\n\n");

    inst->seen.clear();
    EXPECT_EQ(uart3_write(std::string(100, 'z').c_str(), 100), 63);
    sim::advance_ms(150);
    EXPECT_EQ(inst->seen, std::string(63, 'z'));

    // A discarding flush drops what is still in the ring; what the hardware
    // took (16-byte FIFO and the shift register) still goes out.
    inst->seen.clear();
    bool wasMasked = IntMasterDisable();
    uart3_write(std::string(60, 'y').c_str(), 60);
    uart3_tx_bufr_flush(1);
    if (!wasMasked) {
        IntMasterEnable();
    }
    sim::advance_ms(150);
    EXPECT_EQ(inst->seen, std::string(17, 'y'));
}

TEST_F(BoardTest, InstrumentPortReads) {
    unsigned char buf[16];
    struct {
        const char *in;
        uint32_t len;
        int ret;
        std::string stored;
        int left;
    } cases[] = {
        {"hello world\r", 6, 5, "hello", 0}, // the rest of the line is consumed
        {"ab\ncd\r", 10, 2, "ab", 3},
        {"\r", 10, 0, "", 0},
    };
    for (const auto &c : cases) {
        uart3_rx_bufr_flush();
        inst->type(c.in);
        sim::advance_ms(30);
        EXPECT_EQ(uart3_rx_str(buf, c.len), c.ret) << c.in;
        EXPECT_EQ(std::string((const char *)buf), c.stored) << c.in;
        EXPECT_EQ(uart3_rx_bytes_avail(), c.left) << c.in;
    }

    uart3_rx_bufr_flush();
    inst->type("abcdX");
    EXPECT_EQ(uart3_rx_buf(buf, 4), 4);
    EXPECT_EQ(std::string((const char *)buf, 4), "abcd");
    EXPECT_EQ(uart3_rx_bytes_avail(), 0) << "one byte more is taken and dropped";

    inst->type("abc");
    sim::advance_ms(10);
    EXPECT_EQ(uart3_rx_bufr_peek('c'), 2);
    EXPECT_EQ(uart3_rx_bufr_peek('z'), -1);
    EXPECT_EQ(uart3_rx_bytes_avail(), 3);
    EXPECT_EQ(uart3_rx_byte(), 'a');
}

TEST_F(BoardTest, PortDispatchersWithoutInstrumentAreDone) {
    for (uint8_t v : {0, 5, 6, 255}) {
        sys_data.data_cfg[CFG_UART3_INST] = v;
        EXPECT_EQ(uart3_stateMachine(1), 0);
    }
    for (uint8_t v : {0, 1, 8, 255}) {
        sys_data.data_cfg[CFG_UART4_INST] = v;
        EXPECT_EQ(uart4_stateMachine(1), 0);
    }
    EXPECT_EQ(sim::console_take(), "");
}

TEST_F(BoardTest, ConsoleWriteConvertsLineFeeds) {
    struct {
        const char *text;
        std::string wire;
    } cases[] = {
        {"a\nb", "a\r\nb"}, {"\r\n>", "\r\n>"},   {"\n", "\r\n"},
        {"x\r", "x\r"},     {"\n\n", "\r\n\r\n"},
    };
    for (const auto &c : cases) {
        uint32_t len = (uint32_t)std::string(c.text).size();
        EXPECT_EQ(UARTwrite(c.text, len), (int)len);
        wait_consoleTx();
        EXPECT_EQ(sim::console_take(), c.wire) << c.text;
    }
    UARTputc('\n');
    wait_consoleTx();
    EXPECT_EQ(sim::console_take(), "\n") << "UARTputc is raw";
    EXPECT_EQ(UARTTxBytesFree(), 2048);
}

TEST_F(BoardTest, ConsoleTextIsNeverDroppedInTheForeground) {
    std::string text;
    for (int i = 0; i < 5000; i++) {
        text += (char)('a' + i % 26);
    }
    EXPECT_EQ(UARTwrite(text.c_str(), (uint32_t)text.size()), 5000);
    wait_consoleTx();
    EXPECT_EQ(sim::console_take(), text);

    // With interrupts masked nobody drains the ring: what does not fit goes.
    ASSERT_FALSE(IntMasterDisable());
    EXPECT_EQ(UARTwrite(text.c_str(), (uint32_t)text.size()), 2047);
    IntMasterEnable();
    wait_consoleTx();
    EXPECT_EQ(sim::console_take(), text.substr(0, 2047));
}

TEST_F(BoardTest, ConsoleLineRead) {
    char buf[8];
    sim::console_feed("hello\r");
    sim::advance_ms(10);
    EXPECT_EQ(UARTPeek('\r'), 5);
    EXPECT_EQ(UARTPeek('z'), -1);
    EXPECT_TRUE(UARTrdy());
    EXPECT_EQ(UARTgets(buf, 4), 3);
    EXPECT_STREQ(buf, "hel");
    EXPECT_FALSE(UARTrdy());

    UARTEchoSet(false);
    sim::console_take();
    sim::console_feed("a\r\n");
    sim::advance_ms(10);
    EXPECT_EQ(console_ring(), "a\r\n") << "raw: CR LF both kept";
    EXPECT_EQ(sim::console_take(), "");
}

// ---- FRAM ----------------------------------------------------------------

// The board's own FRAM, watched through the bus log.
class FramTest : public BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        i2c0_init();
        sim::i2c_log_clear();
        mem = sim::state().fram;
    }
    uint8_t *mem = nullptr;
    // Acknowledges of the bytes read: '+' the master acked, '-' it did not.
    static std::string acks() {
        std::string s;
        for (const sim::I2cEvent &e : sim::i2c_log()) {
            s += e.kind == sim::I2cEvent::Read ? (e.ack ? "+" : "-") : "";
        }
        return s;
    }
};

TEST_F(FramTest, TransfersOnTheBus) {
    uint8_t data[3] = {0x0A, 0x0B, 0x0C};
    uint8_t buf[4] = {0, 0, 0, 0};
    mem[0x0203] = 0x11, mem[0x0204] = 0x22, mem[0x0205] = 0x33;
    struct {
        bool write;
        uint32_t address;
        uint32_t length;
        const char *bus, *acks;
    } cases[] = {
        {true, 0x0102, 3, "[50 W] 01 02 0A 0B 0C P", ""},
        {true, 0x0102, 0, "[50 W] 01 P", ""}, // only the high address byte
        {true, 0x7FFF, 1, "[50 W] 7F FF 0A P", ""},
        {false, 0x0203, 1, "[50 W] 02 03 [50 R] 11 P", "-"}, // a single receive
        {false, 0x0203, 2, "[50 W] 02 03 [50 R] 11 22 P", "+-"},
        {false, 0x0203, 3, "[50 W] 02 03 [50 R] 11 22 33 P", "++-"},
    };
    for (const auto &c : cases) {
        sim::i2c_log_clear();
        if (c.write) {
            i2c0_fram_write(FRAM_I2C_ADDR, data, c.length, c.address);
        } else {
            i2c0_fram_read(FRAM_I2C_ADDR, buf, c.length, c.address, 0);
        }
        EXPECT_EQ(sim::i2c_log_text(), c.bus) << c.address << " " << c.length;
        EXPECT_EQ(acks(), c.acks) << c.address << " " << c.length;
    }
    sim::i2c_log_clear();
    EXPECT_EQ(fram_read(0x10203, buf, 2), 2u); // address modulo 65536
    EXPECT_EQ(sim::i2c_log_text(), "[50 W] 02 03 [50 R] 11 22 P");

    uint8_t big[2] = {0x77, 0x66};
    sim::i2c_log_clear();
    fram_apf_dbuf_store(big, 65537); // length modulo 65536: one byte
    EXPECT_EQ(sim::i2c_log_text(), "[50 W] 04 00 77 P");
    // each transfer leaves the interrupt mask as it found it
    fram_sys_samp_store();
    EXPECT_FALSE(IntMasterDisable()) << "were enabled, are enabled again";
    fram_sys_samp_store();
    EXPECT_TRUE(IntMasterEnable()) << "were masked, stay masked";
}

TEST_F(FramTest, RecordsAtTheirAddresses) {
    auto fill = [](void *p, size_t n, uint8_t seed) {
        for (size_t i = 0; i < n; i++) {
            ((uint8_t *)p)[i] = (uint8_t)(seed + i * 7);
        }
    };
    struct {
        void *rec;
        size_t size;
        uint32_t addr;
        void (*store)(void);
        void (*retrieve)(void);
    } cases[] = {
        {&sys_samp, sizeof(sys_samp), 64, fram_sys_samp_store, fram_sys_samp_retrieve},
        {&sampl, sizeof(sampl), 128, fram_last_samp_store, fram_last_samp_retrieve},
        {&apf, sizeof(apf), 256, fram_apf_vars_store, fram_apf_vars_retrieve},
    };
    for (const auto &c : cases) {
        fill(c.rec, c.size, (uint8_t)c.addr);
        std::vector<uint8_t> image((uint8_t *)c.rec, (uint8_t *)c.rec + c.size);
        c.store();
        EXPECT_EQ(std::vector<uint8_t>(mem + c.addr, mem + c.addr + c.size), image);
        memset(c.rec, 0, c.size);
        c.retrieve();
        EXPECT_EQ(std::vector<uint8_t>((uint8_t *)c.rec, (uint8_t *)c.rec + c.size), image);
    }
    sim::i2c_log_clear();
    fram_apf_store_all();
    std::string log = sim::i2c_log_text();
    EXPECT_EQ(log.rfind("[50 W] 01 00 ", 0), 0u) << "float-controller record first";
    EXPECT_NE(log.find("P [50 W] 00 80 "), std::string::npos) << "then the last sample";

    uint8_t out[5] = {1, 2, 3, 4, 5}, in[5] = {0};
    fram_apf_dbuf_store(out, 5);
    fram_apf_dbuf_retrieve(in, 5);
    EXPECT_EQ(std::vector<uint8_t>(in, in + 5), std::vector<uint8_t>(out, out + 5));
    EXPECT_EQ(mem[1024], 1);
}

TEST_F(FramTest, ProbeAndInit) {
    EXPECT_EQ(fram_probe(), 0xAA55AA55u);
    EXPECT_EQ(std::vector<uint8_t>(mem, mem + 4), (std::vector<uint8_t>{0x55, 0xAA, 0x55, 0xAA}));
    EXPECT_EQ(fram_init(), 0);
    wait_consoleTx();
    EXPECT_EQ(sim::console_take(), "");

    sim::attach_i2c(FRAM_I2C_ADDR, nullptr); // nobody answers
    EXPECT_EQ(fram_probe(), 0u);
    EXPECT_EQ(fram_init(), 1);
    wait_consoleTx();
    EXPECT_EQ(sim::console_take(), "\r\nERROR: FRAM fails probe, do not deploy until resolved\r\n");
}

// ---- board lines -----------------------------------------------------------

TEST_F(BoardTest, WatchdogStatistics) {
    GPIOPinTypeGPIOOutput(GPIO_PORTF_BASE,
                          GPIO_PIN_0 | GPIO_PIN_1); // as the board start-up sets them
    wdog = watchDog{};
    SysCtlSleep(); // start just after a tick
    wdog_init();
    EXPECT_EQ(port_f() & (GPIO_PIN_0 | GPIO_PIN_1), GPIO_PIN_0) << "enabled, pet line low";
    g_petPulses = 0;
    sim::advance_ms(5);
    wdog_pet();
    EXPECT_EQ(wdog.tickLongest, wdog.tickDelta) << "the first gap counts from reset";
    wdog.tickLongest = 0; // the milliseconds since reset depend on the tests run before
    sim::advance_ms(250);
    wdog_pet();
    sim::advance_ms(40);
    wdog_pet();
    EXPECT_EQ(wdog.tickLongest, 250u);
    EXPECT_NEAR(wdog.tickTot, 295u, 1u); // the pets themselves take a little time
    EXPECT_EQ(wdog.tickDelta - wdog.tickStart, wdog.tickTot);
    EXPECT_EQ(g_petPulses, 3);
    EXPECT_EQ(port_f() & GPIO_PIN_1, 0) << "each pulse ends low";
}

TEST_F(BoardTest, LedsProbesAndCardDetect) {
    init_TM4C123GH6PM_64pin();
    led_init();
    profileTarget = 0;
    profile2Target = 0;
    struct {
        void (*op)(void);
        int32_t red, green;
    } steps[] = {
        {[] { profile_on(3); }, 0, 0}, // not the selected probe
        {[] { profile_on(0); }, 1, 0},      {[] { profile2_toggle(0); }, 1, 1},
        {[] { profile2_toggle(2); }, 1, 1}, {led_red_toggle, 0, 1},
        {[] { led_green(0); }, 0, 0},       {[] { led_red(5); }, 1, 0},
        {[] { profile_off(0); }, 0, 0},
    };
    for (const auto &s : steps) {
        s.op();
        EXPECT_EQ(ledRedState, s.red);
        EXPECT_EQ(ledGreenState, s.green);
        EXPECT_EQ((port_f() & GPIO_PIN_2) != 0, s.red != 0);
        EXPECT_EQ((port_f() & GPIO_PIN_3) != 0, s.green != 0);
    }
    sim::state().card_absent = false; // card detect: the line reads low
    EXPECT_EQ(uSD_present(), 1);
    EXPECT_EQ(GPIOPinRead(GPIO_PORTA_BASE, GPIO_PIN_6), 0);
    sim::state().card_absent = true;
    EXPECT_EQ(uSD_present(), 0);
    sim::state().card_absent = false;
}

TEST_F(BoardTest, SupplyNotices) {
    struct {
        void (*op)(void);
        const char *text;
    } cases[] = {
        {pwr_iso_on, "\r\npwr_iso_on is not ported on ZEP3, board_util.c, line 190\r\n"},
        {pwr_iso_off, "\r\npwr_iso_off is not ported on ZEP3, board_util.c, line 201\r\n"},
        {pwr_flash_on, "pwr_flash_on needs imp board_util.c\r\n"},
        {pwr_flash_off, "pwr_flash_off needs imp board_util.c\r\n"},
        {pwr_uSD_on, ""},
        {pwr_uSD_off, "pwr_uSD_on needs imp board_util.c\r\n"}, // names "on", as always
        {console_off, ""}, // console_on and the pump switches: sample and spine tests
        {read_wdog_flipflop, "Not implemented yet\r\n"},
        {solenoid_hit, ""},
        {pwr_ctd_on, ""},
        {PORTXXX_on, ""},
    };
    for (const auto &c : cases) {
        c.op();
        wait_consoleTx();
        EXPECT_EQ(sim::console_take(), c.text);
    }
}

TEST_F(BoardTest, StopwatchesAndBusyWaits) {
    SysCtlSleep();
    Timer_1ms(1);
    Timer_10ms(1);
    delay_msec(95);
    EXPECT_NEAR(Timer_1ms(0), 95u, 1);
    EXPECT_EQ(Timer_10ms(0), 9u);
    EXPECT_EQ(Timer_1ms(1), 0u);
    delay_usec(3000);
    EXPECT_NEAR(Timer_1ms(0), 3u, 1);
    Timer_1ms(1);
    delay_sec(2);
    EXPECT_NEAR(Timer_1ms(0), 2000u, 2);
    EXPECT_EQ(Timer_10ms(0), 209u);
}

} // namespace
