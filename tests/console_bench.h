// The console bench of the host, float-controller and sample suites: the
// firmware in-process on a freshly powered board, lines typed at its console.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

#include "board/board_util.h"
#include "board/i2c0.h"
#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "core/main.h"
#include "files/microsd.h"
#include "files/ymodem.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "host/serial.h"
#include "host/serial_cmd_fxn.h"
#include "scenario.h"
#include "sim.h"
#include "sysctl.h"

constexpr uint32_t kNewYearsEve = 1735689599; // 12/31/24 23:59:59 UTC
const std::string kPrompt = "\r\n>";

// Values as one comma-separated row, to compare many fields at once.
template <typename... T> std::string row(const T &...v) {
    std::ostringstream o;
    o.precision(17);
    ((o << +v << ','), ...);
    std::string s = o.str();
    s.pop_back();
    return s;
}

// Script lines typing `keys` ("|" between them) one a second from `t` on.
inline std::string each_second(int t, const std::string &keys) {
    std::string s;
    for (size_t from = 0, bar = 0; bar != std::string::npos; from = bar + 1) {
        bar = keys.find('|', from);
        s += std::to_string(t++) + " " + keys.substr(from, bar - from) + "\\r\n";
    }
    return s;
}

// A sample line (`line`, no line end) on a card that answers nothing (`e`):
// the data file's open fails, then every step of the error log's entry.
inline std::string unreadable_card(const std::string &line, const std::string &e) {
    std::string s = line + "\r\nf_open error: " + e + "\r\n";
    for (const char *step : {"open", "lseek", "write", "write", "close"}) {
        s += std::string("Error.txt f_") + step + " error: " + e + "\r\n";
    }
    return s;
}

// A 32-bit field of the float controller's record in a FRAM image.
inline uint32_t fram_field(const std::vector<uint8_t> &f, size_t off) {
    return scenario::u32(f, FRAM_ADDR_APF_VARS + off);
}

class ConsoleBench : public ::testing::Test {
  protected:
    void SetUp() override {
        bench::power_up();
        i2c0_init();
        fresh();
    }

    // Firmware RAM as after a start with a plain record.
    void fresh() {
        memset(&sys_data, 0, sizeof(sys_data));
        sys_data.sampling_period = 10;
        strcpy(sys_data.fileName, "noname.txt");
        memset(&sys_samp, 0, sizeof(sys_samp));
        sys_samp.initNum = SYS_SAMP_INIT_NUM;
        memset(&apf, 0, sizeof(apf));
        memset(&rx0, 0, sizeof(rx0));
        apf_set_m2m_timeout();
        databarFlg = calFileFlg = mmsDbgFlg = 0;
        barfSampleTime = 5;
        Zcoefs = 0;
        memset(ZeissCoefs, 0, sizeof(ZeissCoefs));
        HibernateRTCSet(kNewYearsEve);
        UARTEchoSet(0);
        take();
    }

    static std::string take() { return bench::take(); }

    // Puts a line into the receive buffer as the receiver would (lower case)
    // and dispatches it; returns the dispatcher's result.
    static uint32_t dispatch(const std::string &line) {
        memset(rx0.buf, 0, sizeof(rx0.buf));
        rx0.indx = (uint32_t)std::min(line.size(), sizeof(rx0.buf) - 1);
        std::transform(line.begin(), line.begin() + rx0.indx, rx0.buf,
                       [](char c) { return (uint8_t)((c >= 'A' && c <= 'Z') ? c + 32 : c); });
        return parse_rx0_buf();
    }

    // Types bytes at the console and steps the receiver for `ms` of simulated
    // time; `result`: -1 as soon as a command ends the awake period, else the
    // last non-zero result.
    static std::string type(const std::string &bytes, uint32_t ms = 60, int32_t *result = nullptr) {
        sim::console_feed(bytes);
        int32_t last = 0;
        for (uint32_t t0 = Timer_1ms(0); last >= 0 && Timer_1ms(0) - t0 < ms;) {
            int32_t r = handle_m2m_comm();
            if (r != 0) {
                last = r;
            } else {
                SysCtlSleep();
            }
        }
        if (result != nullptr) {
            *result = last;
        }
        return take();
    }

    // Reply to one line, without the echo and the prompt around it.
    static std::string reply(const std::string &line, uint32_t ms = 100) {
        m2m_statemachine_init(); // a command that ended the awake period left its line
        take();
        std::string out = type(line + "\r", ms);
        size_t from = out.find(line + "\r\n");
        if (from != std::string::npos) {
            out = out.substr(from + line.size() + 2);
        }
        if (out.size() >= 3 && out.compare(out.size() - 3, 3, kPrompt) == 0) {
            out.resize(out.size() - 3);
        }
        return out;
    }

    // The float controller's record as kept in FRAM.
    static apfGlobals stored() {
        apfGlobals a;
        fram_read(FRAM_ADDR_APF_VARS, reinterpret_cast<uint8_t *>(&a), sizeof(a));
        return a;
    }
};
