// The float controller's dialect, in-process and in whole simulated sessions.
#include "console_bench.h"

#include <regex>

#include "host/spectrometer.h"

namespace {

bool ends_with(const std::string &s, const std::string &tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// The header's build line, which differs from build to build, as a fixed text.
std::string fixed_build_line(const std::string &s) {
    static const std::regex kBuild(
        R"(H, App Build        Date , [A-Z][a-z]{2} [ \d]\d \d{4}, \d\d:\d\d:\d\d\r\n)");
    return std::regex_replace(s, kBuild, "H, App Build        Date , <build>\r\n");
}

// The pH record line: check word, then the record (date and 19 numbers).
const std::regex kRecord(R"(0x([0-9A-F]{4}),(pH,\d\d/\d\d/\d{4} \d\d:\d\d:\d\d,)"
                         R"(\d+,-?[\d.]+,-?[\d.]+,-?[\d.]+,\d+,\d+,\d+,[^,]+,-?[\d.]+,-?[\d.]+,)"
                         R"([^,]+,[^,]+,-?[\d.]+,[^,]+,[^,]+,[^,]+,[^,]+,[^,]+,[^,\r\n]+))");

// True when the check word is that of the record with seven blanks in its place.
bool crc_ok(const std::smatch &m) {
    std::string formatted = "       " + m[2].str();
    uint16_t crc =
        fCrc16Bit(reinterpret_cast<const uint8_t *>(formatted.data()), (uint32_t)formatted.size());
    return std::stoul(m[1].str(), nullptr, 16) == crc;
}

class Apf : public ConsoleBench {
  protected:
    void SetUp() override {
        ConsoleBench::SetUp();
        sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 1;
        init_uSDCard();
        SetDefaultsIntoNVRAM(); // as on a new board (logs its own -116)
        apf.sys_error_ctr = apf.sys_last_error = 0;
        apf.sys_error_time = 0;
        f_unlink("ERROR.LOG");
        take();
    }

    // A spectrometer calibration for the tests: lambda = 190 nm + 1 nm per cell.
    void fake_coefficients() {
        Zcoefs = 5;
        ZeissCoefs[0] = 190.0;
        ZeissCoefs[1] = 1.0;
    }
};

TEST_F(Apf, RepliesAndRefusals) {
    struct Case {
        const char *line;
        uint32_t mode; // sys_sensor_mode beforehand
        std::string reply;
    };
    const std::string bake = "\r\nDEBUG: wait for ACK is not implemented, calling mms_bake, type X "
                             "to terminate BAKE\r\n";
    // With a spectrometer calibration: its ranges are checked after it.
    const Case cases[] = {
        {"w", 0, "ACK\r\n"},
        {"q", 0, "ACK,Q,4\r\n"},
        {"type,3", 0, "ACK,Q,3\r\n"},
        {"type,7", 0, "ACK,Q,4\r\n"}, // out of 1-4: the old type stays
        {"type", 0, "ACK,Q,4\r\n"},
        {"MODE,2", 0, "ACK,MODE,2\r\n"},
        {"mode,3", 0, "NAK,MODE,RangeErr [0,2]: 3\r\n"},
        {"mode", 0, "NAK,MODE,FormatErr\r\n"},
        {"mode2", 0, "NAK,MODE,FormatErr\r\n"}, // missing comma
        {"mode,x", 0, "NAK,MODE,FormatErr\r\n"},
        {"mode,?", 2, "ACK,MODE?,2\r\n"},
        {"tint,?", 0, "TINT,?,1000\r\n"},
        {"tint,3", 0, "NAK,TINT,RangeErr [4,4000], 3\r\n"},
        {"tint,4", 0, "ACK,TINT,4\r\n"},
        {"tint,4000", 0, "ACK,TINT,4000\r\n"},
        {"tint,4001", 0, "NAK,TINT,RangeErr [4,4000], 4001\r\n"},
        {"tint,99999999", 0, "NAK,TINT,RangeErr [4,4000], 999999\r\n"}, // six digits read
        {"tint400", 0, "NAK,TINT,FormatErr\r\n"},
        {"bake,0", 0, "NAK,BAKE,RangeErr [1,90]: 0\r\n"},
        {"bake,91", 0, "NAK,BAKE,RangeErr [1,90]: 91\r\n"},
        {"bake,x", 0, "NAK,BAKE,RangeErr [1,90]: 0\r\n"},
        {"bake", 0, "NAK,BAKE,FormatErr\r\n"},
        {"bake,9x", 0, "ACK,BAKE,CMD,9" + bake},
        {"bake,90", 0, "ACK,BAKE,CMD,90" + bake},
        {"rtc,1727464426", 0, "ACK,1727464426,1727464426\r\n"},
        {"rtc,99999999999999", 0, "ACK,4294967295,4294967295\r\n"}, // cut at 14, saturated
        {"rtc,?", 0, "ACK,RTC?,1735689599\r\n"},
        {"p", 0, "ACK,P,0,0,0\r\n"},
        {"s", 1, "ACK,S,0,0\r\n"},
        {"s", 2, "ACK,S,0,0\r\n"},
        {"s", 0, "NAK,S,InvalidModeValue: 0\r\n"},
        {"e", 1, "ACK,E,0,0\r\n"},
        {"e", 7, "NAK,E,InvalidModeValue: 7\r\n"},
        {"t", 1, "NAK,T,-1.0\r\n"},
        {"c", 0, "NAK,C,InvalidModeValue: 0\r\n"},
        {"se,?", 0, "ACK,SE?,0\r\n"},
        {"se", 0, "Imp es Nada apf_xfer_se, send error records\r\n"},
        {"fit,?", 0, "Imp es Nada apf_get_fit\r\n"},
        {"fit,1", 0, "Imp es Nada apf_set_fit\r\n"},
        {"cal", 0, "Imp es Nada apf_get_cal\r\n"},
        {"ctd,?", 0, "ACK,CTD?,0,0.0000,0.0000,0.00\r\n"},
        {"spectra,210,220", 0, "NAK,SPECTRA,EVal-SVal!>10: 220, 210\r\n"},
        {"spectra,230,220", 0, "NAK,SPECTRA,EVal<SVal: 220, 230\r\n"},
        {"spectra,200,250", 0, "NAK,SPECTRA,SRangeErr [210,350]: 200\r\n"},
        {"spectra,210,351", 0, "NAK,SPECTRA,ERangeErr [210,350]: 351\r\n"},
        {"spectra,abc,250", 0, "NAK,SPECTRA,SConvertErr: abc\r\n"},
        {"spectra,220,", 0, "NAK,SPECTRA,EConvertErr: \r\n"},
        {"spectra,99999999999,250", 0, "NAK,SPECTRA,SOverflowErr: 99999999999\r\n"},
        {"spectra,220,88888888888,5", 0, "NAK,SPECTRA,EOverflowErr: 88888888888\r\n"},
        {"spectra,220", 0, "NAK,SPECTRA,FormatErr\r\n"},
        {"spectra", 0, "NAK,SPECTRA,FormatErr\r\n"},
        {"t1", 0, "ACK,T1,CMD\r\nNAK,T1,CMD\r\n"}, // no spectrometer
        {"s1", 0, "ACK,S1,CMD\r\nNAK,S1,CMD\r\n"},
        {"ts", 1, "ACK,TS,CMD\r\nNAK,TS,CMD\r\n"},
        {"sl", 1, "apf_send_last_nitrate, byteCnt is 0\r\nNAK,SL\r\n"},
        {"off", 0, "ACK,OFF\r\n"},
        {"h", 0,
         "\r\nCommands: W,M,E,P,S,T,C,Q,INIT,TINT,MODE,SS,S1,S2,SL,TS,T1,T2,SE,SLP,OFF,RTC,FIT,CTD,"
         "BAKE,SPECTRA,VER\r\nterm time = 1000 msec\r\n"},
    };
    fake_coefficients();
    for (const Case &c : cases) {
        apf.isus_datpixel_beg = 17;
        apf.isus_datpixel_end = 87;
        apf.sys_sensor_type = 4;
        apf.isus_spec_period = 1000;
        apf.sys_sensor_mode = c.mode;
        apf_set_m2m_timeout();
        HibernateRTCSet(kNewYearsEve);
        EXPECT_EQ(reply(c.line), c.reply) << c.line;
    }
    // Changes are kept in FRAM at once.
    reply("type,2");
    reply("mode,1");
    reply("tint,321");
    EXPECT_EQ(row(stored().sys_sensor_type, stored().sys_sensor_mode, stored().isus_spec_period),
              "2,1,321");
    // "mode" also forgets the record kept for "sl".
    apf.sendlast_byteCnt = 9;
    reply("mode,5");
    EXPECT_EQ(apf.sendlast_byteCnt, 0u);
}

TEST_F(Apf, DebugWatchdogAndStatusLines) {
    EXPECT_EQ(reply("dbg"), "mmsDbgFlg=1, mms dbg printfs are on\r\n");
    EXPECT_EQ(mmsDbgFlg, 0); // the message promises more than it does
    mmsDbgFlg = 1;
    EXPECT_EQ(reply("dbg"), "mmsDbgFlg=0, mms dbg printfs are off\r\n");
    EXPECT_EQ(mmsDbgFlg, 0);
    wdog_init();
    std::string w = type("wdog\r");
    EXPECT_TRUE(
        std::regex_search(w, std::regex(R"(wdog\r\nDEV: wdog.longest = \d+, tot = \d+\r\n>)")))
        << w;
    EXPECT_EQ(reply("dev").rfind("Commands implemented: ", 0), 0u);
    EXPECT_EQ(reply("stat").rfind("Commands implemented: ", 0), 0u);
    std::string sys = reply("sys");
    scenario::expect_in(sys, {"Spectro : none fitted, ZCoefs = 0\r\n", "Card    : 2097152 kB"});
}

TEST_F(Apf, CtdValuesCountOnlyWhenTheHostConfirms) {
    const std::string line = "ctd,1727464446,20.0000,35.0000,-5.00";
    const std::string echo = "ACK,CTD,1727464446,20.0000,35.0000,-5.00\r\n";
    struct Case {
        const char *answer; // typed after the echo
        std::string dbg;    // what the wait shows
        bool valid;
    };
    const std::string ack = "DBG: good char A\r\nDBG: good char C\r\n";
    const std::string ackK = ack + "DBG: good char K\r\n";
    const Case cases[] = {
        {"ACK\r", ackK + "DBG: good ACK\r\n", true},
        {"ack", ackK + "DBG: good ACK\r\n", true},
        {"NAK\r",
         "DBG: good char N\r\nDBG: good char A\r\nDBG: good char K\r\nDBG: illegal char \r", false},
        {"AC1", ack + "DBG: illegal char 1", false},
        {"ACKS", ackK + "DBG: good ACK\r\n", true},
        {"ACXK", ack + "DBG: good char X\r\nDBG: string too big, K", false},
        {"", "", false}, // nothing within 3 s
    };
    uint16_t errors = 0;
    for (const Case &c : cases) {
        apf.CTD_Time = 7;
        sim::console_feed(line + "\r" + c.answer);
        std::string out = type("", 3500);
        ASSERT_NE(out.find(line + "\r\n" + echo), std::string::npos) << c.answer;
        EXPECT_NE(out.find(echo + c.dbg), std::string::npos) << c.answer << "\n" << out;
        errors += !c.valid;
        EXPECT_EQ(reply("ctd,?"), c.valid ? "ACK,CTD?,1727464446,20.0000,35.0000,-5.00\r\n"
                                          : "ACK,CTD?,0,-1.0000,-1.0000,-1.00\r\n");
        EXPECT_EQ(apf.sys_error_ctr, errors) << c.answer;
        type("\r", 10);
    }
    // Each failure is one dated line of the error log, and a system error.
    std::string log = bench::card("ERROR.LOG");
    EXPECT_EQ(log.rfind("E, 01/01/2025 00:00:", 0), 0u) << log;
    EXPECT_EQ(scenario::count(log, ", -110, CTD Command ACK Failure\n"), errors);
    EXPECT_EQ(apf.sys_last_error, (uint16_t)-110);
    EXPECT_EQ(reply("se,?"), "ACK,SE?," + std::to_string(errors) + "\r\n");
    // With messages on, the logged line shows on the console too.
    apf.sys_message_enable = 1;
    std::string out = type(line + "\r", 3200);
    EXPECT_TRUE(
        std::regex_search(out, std::regex(R"(\d\d:\d\d:\d\d, -110, CTD Command ACK Failure\r\n)")));
    // Missing fields read as zero.
    sim::console_feed("ctd,123\rACK");
    EXPECT_NE(type("", 200).find("ACK,CTD,123,0.0000,0.0000,0.00\r\n"), std::string::npos);
}

TEST_F(Apf, SpectraRangeAndItsAckWithCoefficients) {
    EXPECT_EQ(reply("spectra,?"), "ACK,SPECTRA?,0.0,0.0\r\n");
    EXPECT_EQ(reply("spectra,210,221"), "NAK,SPECTRA,ZCoef File Error = 0\r\n");
    fake_coefficients();
    apf.isus_datpixel_beg = 17;
    apf.isus_datpixel_end = 87;
    EXPECT_EQ(reply("spectra,?"), "ACK,SPECTRA?,207.0,277.0\r\n");
    // Confirmed: the data range moves to the cells of the new wavelengths.
    EXPECT_EQ(type("spectra,210,221\rack\r", 200),
              "spectra,210,221\r\nACK,SPECTRA,210,221\r\n\r\n>");
    EXPECT_EQ(row(apf.isus_datpixel_beg, apf.isus_datpixel_end, apf.sys_error_ctr), "20,31,0");
    EXPECT_EQ(reply("spectra,?"), "ACK,SPECTRA?,210.0,221.0\r\n");
    // Not confirmed ("NAK", or nothing within 3 s): logged, range unchanged.
    type("spectra,250,300\rNAK\r", 200);
    type("spectra,250,300\r", 3200);
    EXPECT_EQ(row(apf.isus_datpixel_beg, apf.sys_error_ctr), "20,2");
    EXPECT_EQ(scenario::count(bench::card("ERROR.LOG"), ", -110, SPECTRA Command ACK Failure\n"),
              2u);
}

TEST_F(Apf, LinkPrimitives) {
    // The check word's CRC: its published check value.
    EXPECT_EQ(fCrc16Bit(reinterpret_cast<const uint8_t *>("123456789"), 9), 0x29B1);
    EXPECT_EQ(fCrc16Bit(nullptr, 0), 0xFFFF);
    auto match = [](const char *text) {
        char buf[16];
        strcpy(buf, text);
        return MatchACK(buf);
    };
    EXPECT_EQ(row(match("ACK"), match("ack\r\n"), match("NAK\r"), match("nak\n"), match("ACKS"),
                  match("AC"), match(""), match("XYZ"), match("AC\rK")),
              "6,6,21,21,-1,-1,-1,-1,-1");
    char buf[32];
    sim::console_feed("ACK\r");
    EXPECT_EQ(UART_GetStr_timeout(buf, sizeof(buf), 3000), 4);
    EXPECT_STREQ(buf, "ACK\r");
    // A reply longer than the buffer is taken whole and stored as far as it goes.
    sim::console_feed(std::string(100, 'x') + "\n");
    EXPECT_EQ(UART_GetStr_timeout(buf, sizeof(buf), 3000), 101);
    EXPECT_EQ(std::string(buf), std::string(31, 'x'));
    uint32_t t0 = Timer_1ms(0);
    EXPECT_EQ(UART_GetStr_timeout(buf, sizeof(buf), 3000), -1);
    EXPECT_NEAR((double)(Timer_1ms(0) - t0), 3000.0, 5.0);
    // A reply that never ends is given up rather than waited on forever.
    sim::console_feed(std::string(5000, 'y'));
    EXPECT_EQ(UART_GetStr_timeout(buf, sizeof(buf), 3000), -1);
    sim::advance_ms(200);
    UARTFlushRx();
    // waitACK: the time-out runs from the last letter.
    take();
    sim::console_feed("A");
    t0 = Timer_1ms(0);
    EXPECT_EQ(waitACK(500), -1);
    EXPECT_GE(Timer_1ms(0) - t0, 500u);
    EXPECT_EQ(take(), "DBG: good char A\r\n");
}

TEST_F(Apf, InitResetsCountersAndSettingsButNothingElse) {
    memset(&apf, 0x5A, sizeof(apf));
    apfGlobals before = apf;
    EXPECT_EQ(reply("init"), "ACK,INIT\r\n");
    apfGlobals expect = before;
    expect.isus_fit_concs = 2;
    expect.isus_tcomp_mode = expect.sys_watchdog_enable = expect.sys_data_mode = 1;
    expect.sys_ef_limit = 128;
    expect.sys_df_limit = 5;
    expect.sys_apf_tmout = 10;
    expect.sendlast_byteCnt = expect.sys_message_enable = expect.isus_salfit_mode = 0;
    expect.dura_led_enable = expect.sys_por_ctr = expect.sys_reset_ctr = 0;
    expect.isus_error_ctr = expect.isus_error_time = expect.isus_sample_ctr = 0;
    expect.isus_sample_time = expect.dura_error_ctr = expect.dura_error_time = 0;
    expect.dura_sample_ctr = expect.dura_sample_time = 0;
    expect.sys_last_error = expect.sys_error_ctr = expect.sys_error_time = 0;
    // No coefficients: pixel ranges and wavelengths stay.
    apfGlobals a = stored();
    EXPECT_EQ(memcmp(&apf, &expect, sizeof(apf)), 0);
    EXPECT_EQ(memcmp(&a, &expect, sizeof(a)), 0);
    // With coefficients, the fit and data ranges follow 217-240 and 217-250 nm.
    fake_coefficients();
    reply("init");
    EXPECT_EQ(row(apf.isus_pixel_beg, apf.isus_pixel_end, apf.isus_fit_pixels,
                  apf.isus_datpixel_end, apf.lambda_beg, apf.lambda_end),
              "27,50,24,60,217,250");
}

TEST_F(Apf, HeaderBlockLines) {
    apf.sys_reset_time = kNewYearsEve - 60;
    apf.sys_por_ctr = 3;
    apf.sys_reset_ctr = 8;
    apf.sys_error_ctr = 2;
    apf.sys_last_error = (uint16_t)-110;
    apf.sys_error_time = 0x1234; // with sys_file_ctr 1 above it: 0x00011234 s
    apf.isus_error_ctr = 1;
    apf.isus_last_error = (uint32_t)-250;
    apf.isus_error_time = kNewYearsEve - 3600;
    apf.isus_lamp_elp = 3 * 3600 + 25 * 60 + 7;
    apf.isus_lamp_evt = 12;
    apf.dura_sample_ctr = 151;
    strcpy(sys_data.board_SN, "Z3-0042");
    const std::string general =
        "H, Datalogger Serial Num , SN:0777\r\nH, Application      Name , FENWA.BIN\r\n"
        "H, App Build        Date , <build>\r\nH, Power Up Time   (GMT) , 12/31/2024 23:58:59\r\n"
        "H, Current  Time   (GMT) , 12/31/2024 23:59:59\r\n"
        "H, Alarm    Time   (GMT) , 01/01/1970 00:00:00\r\nH, Power Active  Timeout , 10\r\n"
        "H, ZEP3 Info, S/N:Z3-0042- Seawick:Fenwa v5.0.3 ZEP3 123g revB\r\n"
        "H, Compact FLASH    Size , 2097152\r\nH, Compact FLASH    Left , 100.00%\r\n"
        "H, Power Cycle   Counter , 3\r\nH, System Reset  Counter , 8\r\n"
        "H, System Error  Counter , 2\r\nH, Last System     Error , 65426\r\n"
        "H, Last System ErrorTime , 01/01/1970 19:29:56\r\n";
    const std::string nitrate =
        "H, ISUS  Error   Counter , 1\r\nH, Last ISUS       Error , -250\r\n"
        "H, Last ISUS Error  Time , 12/31/2024 22:59:59\r\nH, ISUS Sample   Counter , 0\r\n"
        "H, Last Sample Rec. Time , 01/01/1970 00:00:00\r\nH, Fiberlite    Odometer , 03:25:07\r\n"
        "H, Fiberlite      Cycles , 12\r\nH, Spec Intensity LampON , 5000\r\n"
        "H, Spec Integration Time , 1000\r\nH, Spec Pre  scans taken , 2\r\n"
        "H, Spec Lite scans taken , 3\r\nH, Spec Dark scans taken , 1\r\n"
        "H, Zceof File    Error   , ZCoefs = 0\r\nH, Eceof File    Error   , ECoefs = 0\r\n"
        "H, Sw Calibration   Temp , 0.00\r\nH, Wavelength Fit  Range , 0.000 <-> 0.000\r\n"
        "H, Pixel Fit       Range , 17 <-> 87\r\nH, Fitted Concentrations , 2\r\n"
        "H, Baseline        Model , (ax + b)\r\nH, Br Temp  Compensation , ENABLED\r\n"
        "H, Bromide Term in Model , will be FIXED (to external CTD value)\r\n";
    const std::string ph =
        "H, DURA  Error   Counter , 0\r\nH, Last DURA       Error , 0\r\n"
        "H, Last DURA Error  Time , 01/01/1970 00:00:00\r\nH, DURA Sample   Counter , 151\r\n"
        "H, Last Sample Rec. Time , 01/01/1970 00:00:00\r\nH, AtoD Reads per Sample , 10\r\n"
        "H, AtoD Reading    Delay , 100\r\nH, Samps per AtoD  Recal , 250\r\n";
    auto header = [&](int smode) {
        HibernateRTCSet(kNewYearsEve);
        print_write_isusdura_header(1, 0, smode, nullptr);
        return fixed_build_line(take());
    };
    // "c" by mode; "gh1" and "gh2" both show the pH block.
    for (auto [line, mode, block] :
         {std::tuple{"c", 2, ph}, {"gh1", 2, ph}, {"gh2", 2, ph}, {"c", 1, nitrate}}) {
        apf.sys_sensor_mode = (uint32_t)mode;
        HibernateRTCSet(kNewYearsEve);
        EXPECT_EQ(fixed_build_line(reply(line)), general + block) << line;
    }
    // Model 2, no compensation, bromide fitted; an unknown model: no line end.
    apf.isus_bsl_model = 2;
    apf.isus_tcomp_mode = 0;
    apf.isus_salfit_mode = 1;
    EXPECT_NE(
        header(1).find("H, Baseline        Model , (ax^2 + bx + c)\r\nH, Br Temp  "
                       "Compensation , DISABLED\r\nH, Bromide Term in Model , will be FIT (to "
                       "absorbance data)\r\n"),
        std::string::npos);
    apf.isus_bsl_model = 7;
    EXPECT_NE(header(1).find("H, Baseline        Model , H, Br Temp  Compensation , DISABLED\r\n"),
              std::string::npos);
    // With coefficients, their line closes the block and the error line goes.
    fake_coefficients();
    apf.isus_bsl_model = 4;
    std::string out = header(1);
    EXPECT_EQ(out.find("Zceof"), std::string::npos);
    scenario::expect_in(
        out, {"H, Wavelength Fit  Range , 207.000 <-> 277.000\r\n", "exp(ax^2 + bx + c)\r\n"});
    EXPECT_TRUE(ends_with(out,
                          "FIT (to absorbance data)\r\nH, Zeiss Coefficient Vals, "
                          "1.900000e+02,1.000000e+00,0.000000e+00,0.000000e+00,0.000000e+00\r\n"))
        << out;
    // The block written to a file is the same text.
    FIL f;
    ASSERT_EQ(f_open(&f, "HDR.TXT", FA_WRITE | FA_OPEN_ALWAYS), FR_OK);
    HibernateRTCSet(kNewYearsEve);
    print_write_isusdura_header(0, 1, 2, &f);
    f_close(&f);
    EXPECT_EQ(take(), "");
    EXPECT_EQ(fixed_build_line(bench::card("HDR.TXT")), general + ph);
}

TEST_F(Apf, PhRecordLineItsCheckWordAndItsFile) {
    apf.dura_reset_flag = 1;
    apf.CTD_Temp = 12.5f; // cleared before the record
    std::string out = reply("t2", 20000);
    std::smatch m;
    ASSERT_TRUE(std::regex_search(out, m, kRecord)) << out;
    EXPECT_TRUE(crc_ok(m)) << m[0];
    EXPECT_EQ(m[2].str().rfind("pH,12/31/2024 23:5", 0), 0u) << m[2];
    EXPECT_NE(m[2].str().find(",0,-1.00,-1.0000,-1.0000,150,33,"), std::string::npos) << m[2];
    EXPECT_NE(m[2].str().find(",4.50,0.035,1.000e-01,"), std::string::npos) << m[2];
    EXPECT_EQ(out.substr(m.position(0) + m.length(0)), "\r\n");
    // Mode, then stand-in figures of the present release, kept in FRAM too.
    EXPECT_EQ(row(apf.sys_sensor_mode, apf.dura_sample_ctr, apf.sys_por_ctr, apf.dura_reset_flag,
                  stored().dura_sample_ctr),
              "2,151,12,0,151");
    // The data file: the header once, then the record without its check word.
    std::string file = bench::card("PROF0000.LOG");
    EXPECT_EQ(file.rfind("H, Datalogger Serial Num , SN:0777\r\n", 0), 0u);
    EXPECT_NE(file.find("H, Samps per AtoD  Recal , 250\r\n" + m[2].str() + "\n"),
              std::string::npos);
    EXPECT_EQ(file.size() - file.find("pH,"), m[2].length() + 1);
    // The next record: the power-cycle count's file, no header.
    out = reply("s2", 20000);
    ASSERT_TRUE(std::regex_search(out, m, kRecord)) << out;
    EXPECT_TRUE(crc_ok(m));
    EXPECT_EQ(bench::card("PROF0012.LOG"), m[2].str() + "\n");
    // "sl" in mode 2: no record kept for it on this board.
    EXPECT_EQ(reply("sl"),
              "serial sl apf_send_last_ph\r\nDBG: apf_send_last_pH, byteCnt is 0\r\nNAK,SL\r\n");
    // A record kept in FRAM is sent as it stands.
    const char kept[] = "0x1234,pH,kept";
    fram_apf_dbuf_store((uint8_t *)kept, sizeof(kept));
    apf.sendlast_byteCnt = sizeof(kept) - 1;
    EXPECT_EQ(reply("sl"), "serial sl apf_send_last_ph\r\n0x1234,pH,kept\r\n");
}

TEST_F(Apf, DataFileRefusedOnAFullOrMissingCard) {
    sim::state().card_full = true;
    EXPECT_EQ(OpenApfLogFile(2), nullptr);
    EXPECT_EQ(row(apf.sys_error_ctr, apf.sys_last_error), row(1, (uint16_t)APF_ERR_CARD_FULL));
    sim::state().card_full = false;
    EXPECT_EQ(OpenApfLogFile(3), nullptr);
    sim::state().card_absent = true;
    EXPECT_EQ(OpenApfLogFile(1), nullptr);
    EXPECT_EQ(apf.sys_last_error, (uint16_t)APF_ERR_FILE_OPEN);
    sim::state().card_absent = false;
    FIL *f = OpenApfLogFile(1);
    ASSERT_NE(f, nullptr);
    f_close(f);
}

TEST_F(Apf, RecordTransferSendsLineByLineThenDeletes) {
    FIL f;
    ASSERT_EQ(f_open(&f, "ERROR.LOG", FA_WRITE | FA_OPEN_ALWAYS), FR_OK);
    const char lines[] = "E, one\nE, two\nE, three\n";
    UINT n = 0;
    f_write(&f, lines, sizeof(lines) - 1, &n);
    f_close(&f);
    // The count names its files with a drive prefix this card does not know.
    EXPECT_EQ(row(CalcRecsPending(1), CalcRecsPending(0), CalcRecsPending(2)), "0,0,-1");
    uint32_t pos = 0;
    for (auto [result, at, text] : {std::tuple{0, 7u, "E, one\r\n"},
                                    {0, 14u, "E, two\r\n"},
                                    {1, 0u, "E, three\r\nEOF\r\n"}}) {
        EXPECT_EQ(row(SendRecords(1, &pos), pos), row(result, at));
        EXPECT_EQ(take(), std::string("DBG working around SRAM limit apfutil\r\n") + text);
    }
    EXPECT_EQ(bench::card("ERROR.LOG"), "");
    EXPECT_EQ(row(SendRecords(1, &pos), SendRecords(0, &pos), SendRecords(4, &pos)), "-1,-1,-1");
}

// Text after the line echoed for `cmd` up to the next prompt.
std::string answer(const std::string &out, const std::string &cmd, size_t from = 0) {
    size_t p = out.find(">" + cmd + "\r\n", from);
    if (p == std::string::npos) {
        return "<no " + cmd + ">";
    }
    p += cmd.size() + 3;
    size_t e = out.find("\r\n>", p);
    std::string a = out.substr(p, e == std::string::npos ? std::string::npos : e - p);
    if (ends_with(a, "\r\n")) {
        a.resize(a.size() - 2);
    }
    return a;
}

constexpr uint32_t kStart = 1735689000; // 12/31/2024 23:50:00

TEST(ApfSession, FloatControllerSessionWithConfirmedCtd) {
    scenario::Board b;
    auto r = b.run(
        "1 sleep\\r\n5 \\r\n" // wakes the board; the byte itself is lost
            + each_second(7, "q|type,3|mode,2|mode,?|ctd,1727464446,20.0000,35.0000,-5.00|ACK|"
                             "ctd,?|rtc,1727464426|rtc,?|t2") +
            each_second(26, "sl|s|e|p|t|c") + each_second(34, "tint,400|bake,10|init|off"),
        45, {"--rtc", std::to_string(kStart)});
    const std::string &o = r.out;
    EXPECT_EQ(answer(o, "ctd,1727464446,20.0000,35.0000,-5.00"),
              "ACK,CTD,1727464446,20.0000,35.0000,-5.00\r\nDBG: good char A\r\nDBG: good char "
              "C\r\nDBG: good char K\r\nDBG: good ACK");
    EXPECT_EQ(answer(o, "ctd,?"), "ACK,CTD?,1727464446,20.0000,35.0000,-5.00");
    EXPECT_EQ(answer(o, "rtc,?").substr(0, 18), "ACK,RTC?,172746442");
    std::string t2 = answer(o, "t2");
    std::smatch m;
    ASSERT_TRUE(std::regex_search(t2, m, kRecord)) << t2;
    EXPECT_TRUE(crc_ok(m));
    EXPECT_EQ(m[2].str().substr(0, 20), "pH,09/27/2024 19:13:");
    EXPECT_EQ(answer(o, "sl"),
              "serial sl apf_send_last_ph\r\nDBG: apf_send_last_pH, byteCnt is 0\r\nNAK,SL");
    EXPECT_EQ(answer(o, "s"), "ACK,S,151,0");
    EXPECT_EQ(answer(o, "e"), "ACK,E,33,0");
    EXPECT_EQ(answer(o, "p"), "ACK,P,12,2," + std::to_string(kStart + 5));
    EXPECT_EQ(answer(o, "t"), "NAK,T,-1.0");
    std::string c = answer(o, "c");
    EXPECT_EQ(c.rfind("H, Datalogger Serial Num , SN:0777\r\n", 0), 0u) << c;
    scenario::expect_in(c, {"H, Power Up Time   (GMT) , 12/31/2024 23:50:05\r\n",
                            "H, DURA Sample   Counter , 151\r\n"});
    EXPECT_TRUE(ends_with(c, "\r\nH, Samps per AtoD  Recal , 250")) << c;
    // "off" ends the awake period: the board hibernates at once.
    size_t off = o.find(">off\r\nACK,OFF\r\n");
    ASSERT_NE(off, std::string::npos);
    EXPECT_EQ(o.substr(off + 15), "*");
    // The record went to the pH data file, under its header.
    std::string file = b.cardFile("PROF0000.LOG");
    EXPECT_EQ(file.rfind("H, Datalogger Serial Num , SN:0777\r\n", 0), 0u);
    EXPECT_NE(file.find(m[2].str() + "\n"), std::string::npos);
    // FRAM keeps what the session set; "init" cleared the counters.
    apfGlobals a;
    memcpy(&a, b.fram().data() + FRAM_ADDR_APF_VARS, sizeof a);
    EXPECT_EQ(row(a.sys_sensor_type, a.isus_spec_period, a.dura_sample_ctr, a.sys_reset_ctr),
              "3,400,0,0");
    EXPECT_EQ(b.cardFile("ERROR.LOG"), "");
}

TEST(ApfSession, RecordSurvivesPowerCycles) {
    scenario::Board b;
    auto r = b.run("1 type,2\\r\n2 tint,123\\r\n3 mode,2\\r\n4 sleep\\r\n"
                   "10 \\r\n12 p\\r\n13 q\\r\n14 tint,?\\r\n15 mode,?\\r\n16 sleep\\r\n"
                   "20 \\r\n22 p\\r\n23 init\\r\n24 p\\r\n25 sleep\\r\n"
                   "30 \\r\n32 p\\r\n34 sleep\\r\n",
                   40, {"--rtc", std::to_string(kStart)});
    const std::string &o = r.out;
    // Each start counts a reset and its time; settings stay, the mode is 1 again.
    EXPECT_EQ(answer(o, "q"), "ACK,Q,2");
    EXPECT_EQ(answer(o, "tint,?"), "TINT,?,123");
    EXPECT_EQ(answer(o, "mode,?"), "ACK,MODE?,1");
    // Power-up times: start + 10, 20, 20 (the third "p" follows "init") and 30 s.
    size_t p = 0;
    for (const char *want :
         {"0,2,1735689010", "0,3,1735689020", "0,0,1735689020", "0,1,1735689030"}) {
        p = o.find(">p\r\n", p + 1);
        EXPECT_EQ(answer(o, "p", p), std::string("ACK,P,") + want);
    }
    apfGlobals a;
    memcpy(&a, b.fram().data() + FRAM_ADDR_APF_VARS, sizeof a);
    EXPECT_EQ(row(a.sys_sensor_type, a.isus_spec_period, a.sys_reset_ctr, a.sys_reset_time),
              row(2, 123, 1, kStart + 30));
}

TEST(ApfSession, BadHostInputNeverBlocksTheLink) {
    scenario::Board b;
    std::string longLine = "tint,12" + std::string(70, '9');
    // No "ACK" ever comes for the first "ctd"; a letter, then garbage for the second.
    auto r = b.run("5 " + longLine +
                       "\\r\n6 \\x01\\xff\\x80mode,1\\r\n7 ctd,1,2,3,4\\r\n11 w\\r\n"
                       "12 ctd,1,2,3,4\\r\n13 A\\x07\\r\n14 w\\r\n15 spectra,300,310\\r\n16 w\\r\n",
                   20);
    // 63 characters are kept: the value is still cut at six digits. Binary bytes
    // while idle: one "NAK" each. A missing "ACK" holds the link for 3 s, no longer.
    EXPECT_EQ(
        r.out.substr(r.out.find(">tint")),
        ">" + longLine +
            "\r\nNAK,TINT,RangeErr [4,4000], 129999\r\n\r\n>NAK\r\n\r\n>NAK\r\n\r\n>NAK\r\n\r\n"
            ">mode,1\r\nACK,MODE,1\r\n\r\n>ctd,1,2,3,4\r\nACK,CTD,1,2.0000,3.0000,4.00\r\n\r\n"
            ">w\r\nACK\r\n\r\n>ctd,1,2,3,4\r\nACK,CTD,1,2.0000,3.0000,4.00\r\nDBG: good char A\r\n"
            "DBG: illegal char \x07\r\n>\r\n>w\r\nACK\r\n\r\n>spectra,300,310\r\n"
            "NAK,SPECTRA,ZCoef File Error = 0\r\n\r\n>w\r\nACK\r\n\r\n>");
    EXPECT_EQ(scenario::count(b.cardFile("ERROR.LOG"), "CTD Command ACK Failure"), 2u);
}

} // namespace
