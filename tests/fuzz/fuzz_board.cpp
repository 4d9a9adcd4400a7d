#include "fuzz_board.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "sim.h"

#include "board/i2c0.h"
#include "board/i2c_fram.h"
#include "board/uart3.h"
#include "board/uart4.h"
#include "board/uartstdio.h"
#include "core/system.h"
#include "eeprom.h"
#include "ff.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "host/serial.h"
#include "host/serial_cmd_fxn.h"
#include "interrupt.h"
#include "sysctl.h"

namespace fs = std::filesystem;

namespace fuzz {
namespace {

FATFS g_fs;

// Kept until exit (never destroyed), so the folder can be removed then.
const std::string &card() {
    static const std::string *dir = [] {
        auto *d = new std::string(
            (fs::temp_directory_path() / ("fenwa-fuzz-" + std::to_string(getpid()))).string());
        std::atexit([] { fs::remove_all(card()); });
        return d;
    }();
    return *dir;
}

[[noreturn]] void fault(const char *what) {
    std::fprintf(stderr, "fuzz invariant: %s\n", what);
    std::abort();
}

} // namespace

void board_up() {
    // what the last input left in the firmware's rings goes with the power
    UARTFlushTx(true);
    UARTFlushRx();
    uart3_tx_bufr_flush(1);
    uart3_rx_bufr_flush();
    uart4_tx_bufr_flush(1);
    uart4_rx_bufr_flush();
    sim::reset_board();
    std::error_code ec;
    fs::remove_all(card(), ec);
    fs::create_directories(card());
    sim::set_card_dir(card());
    SysCtlClockSet(SYSCTL_SYSDIV_4 | SYSCTL_USE_PLL | SYSCTL_OSC_MAIN | SYSCTL_XTAL_16MHZ);
    SysTickPeriodSet(SysCtlClockGet() / 1000u);
    SysTickEnable();
    SysTickIntEnable();
    UARTStdioConfig(0, 115200, 16000000);
    IntMasterEnable();
    i2c0_init();
    std::memset(&g_fs, 0, sizeof g_fs);
    f_mount(&g_fs, "", 0);
    HibernateRTCSet(1735689599u);

    init_sys_data_default();
    storeSysDataVariables();
    std::memset(&sys_samp, 0, sizeof sys_samp);
    sys_samp.initNum = SYS_SAMP_INIT_NUM;
    fram_sys_samp_store();
    std::memset(&apf, 0, sizeof apf);
    std::memset(&rx0, 0, sizeof rx0);
    apf_set_m2m_timeout();
    UARTEchoSet(0);
    sim::console_take();
}

void bounded(double seconds, const std::function<void()> &fn) {
    sim::knobs().time_limit = sim::state().now + uint64_t(seconds * double(sim::kCpuHz));
    // A reset or hibernation ends the call, as the power cycle would end.
    sim::knobs().on_hibernate = [] { throw sim::CycleEnd{sim::EndReason::Hibernated}; };
    try {
        fn();
    } catch (const sim::CycleEnd &e) {
        if (e.reason == sim::EndReason::TimeUp) {
            fault("a call did not return within its bounded wait");
        }
    }
    sim::knobs().on_hibernate = nullptr;
    sim::knobs().time_limit = 10ull * 86400 * sim::kCpuHz;
}

void check_records() {
    const uint8_t *rec = sim::state().eeprom + SYS_DATA_EEPROM_ADDR;
    if (std::strncmp(reinterpret_cast<const char *>(rec) + offsetof(systemData, firmware_version),
                     FIRMWARE_VERSION, sizeof(FIRMWARE_VERSION)) != 0) {
        fault("the configuration record lost its version text");
    }
    uint32_t marker = 0;
    std::memcpy(&marker,
                sim::state().fram + FRAM_ADDR_SYS_SAMP + offsetof(systemSamplingData, initNum),
                sizeof marker);
    if (marker != SYS_SAMP_INIT_NUM) {
        fault("the sampling state lost its marker");
    }
}

std::shared_ptr<sim::Typist> console_host(const uint8_t *data, size_t size,
                                          const std::string &closing, double quietMs) {
    auto host = std::make_shared<sim::Typist>();
    if (size > 0) {
        host->type(std::string(reinterpret_cast<const char *>(data), size));
    }
    host->then_after_quiet(closing, quietMs);
    sim::attach_serial(UART0_BASE, host);
    return host;
}

std::vector<std::string> split(const uint8_t *data, size_t size, char sep) {
    std::vector<std::string> out(1);
    for (size_t i = 0; i < size; i++) {
        if (char(data[i]) == sep) {
            out.emplace_back();
        } else {
            out.back() += char(data[i]);
        }
    }
    return out;
}

void card_put(const char *name, const uint8_t *data, size_t size) {
    std::ofstream f(fs::path(card()) / name, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char *>(data), std::streamsize(size));
}

} // namespace fuzz
