// Calibration coefficients: the export listing and the host line, the packet
// and card imports that read them back, and the operator's entry dialogue on
// the simulated console.
#include <filesystem>
#include <fstream>
#include <memory>
#include <utility>
#include <vector>

#include "console/cal_coeff.h"
#include "console/user_io.h"
#include "console_bench.h"
#include "ff.h"
#include "typist.h"

namespace fs = std::filesystem;

namespace {

class CalCoeffTest : public ConsoleBench {
  protected:
    void SetUp() override {
        ConsoleBench::SetUp();
        card_ = sim::card_dir(); // emptied by the board's reset
        UARTEchoSet(true);
        ASSERT_EQ(f_mount(&fs_, "", 0), FR_OK);
        sys_data.baud_rate = 115200;
        dbg_flag = 0;
        sample();
        take();
    }
    void TearDown() override { sim::reset_board(); }
    // A sensor's calibration, with values that need every digit of "%e".
    static void sample() {
        strcpy(sys_data.cal_filename, "sn042.cal");
        strcpy(sys_data.sensor_SN, "SN042");
        strcpy(sys_data.isfet_SN, "IF777");
        strcpy(sys_data.ise_SN, "IS888");
        strcpy(sys_data.PT_Cal_date, "03/14/2024");
        strcpy(sys_data.k0_Cal_date, "04/15/2024");
        strcpy(sys_data.service_date, "05/16/2024");
        const float k2[4] = {-1.2345678e-3f, 2.5e-5f, -3.7512345e-7f, 4.0e-9f};
        const float fp[7] = {1.0f, -2.123457f, 3.3e10f, -4.0e-20f, 5.55555f, -6.0f, 7.125f};
        memcpy(sys_data.K2_Cal, k2, sizeof k2);
        memcpy(sys_data.fP_Cal, fp, sizeof fp);
        sys_data.k0_HCL = -1.3945012f;
        sys_data.k0_SW = -1.4012f;
        sys_data.k0std_SW = 4.2e-4f;
    }
    // Every value as the host line shows it ("%e" for the numbers).
    static std::string shown() {
        get_pH_sensor_cal_coeff();
        return take();
    }
    fs::path card_;
    FATFS fs_{};
};

const char *const kListing =
    "\r\nCal filename: sn042.cal\r\n\r\n"
    "Sensor_SN,SN042\r\nISFET_SN,IF777\r\nISE_SN,IS888\r\nPT_Cal_date,03/14/2024\r\n"
    "k2_C0,-1.234568e-03\r\nk2_C1,2.500000e-05\r\nk2_C2,-3.751234e-07\r\nk2_C3,4.000000e-09\r\n"
    "fP_0,1.000000e+00\r\nfP_1,-2.123457e+00\r\nfP_2,3.300000e+10\r\nfP_3,-4.000000e-20\r\n"
    "fP_4,5.555550e+00\r\nfP_5,-6.000000e+00\r\nfP_6,7.125000e+00\r\n"
    "k0_Cal_date,04/15/2024\r\nk0_HCl,-1.394501e+00\r\nk0_SW,-1.401200e+00\r\n"
    "k0std_SW,4.200000e-04\r\nservice_date,05/16/2024\r\n\r\n";

// The host line: twenty tab-separated fields.
const std::string kHostLine =
    "SN042\tIF777\tIS888\t03/14/2024\t-1.234568e-03\t2.500000e-05\t-3.751234e-07\t4.000000e-09\t"
    "1.000000e+00\t-2.123457e+00\t3.300000e+10\t-4.000000e-20\t5.555550e+00\t-6.000000e+00\t"
    "7.125000e+00\t04/15/2024\t-1.394501e+00\t-1.401200e+00\t4.200000e-04\t05/16/2024\r\n";

// The listing and the host line; the listing, saved without its file-name
// line, goes back in through the packet import and gives every value again to
// "%e" precision.
TEST_F(CalCoeffTest, ExportListingReadsBackThroughThePacketImport) {
    export_pH_sensor_cal_coeff();
    std::string listing = take();
    EXPECT_EQ(listing, kListing);
    EXPECT_EQ(shown(), kHostLine);
    memset(&sys_data, 0xA5, sizeof sys_data);
    parse_cal_packet(listing.substr(listing.find("Sensor_SN")).c_str());
    EXPECT_EQ(shown(), kHostLine);

    // Lines whose key does not match leave zeros; texts are cut to 7 and 10.
    memset(&sys_data, 0xA5, sizeof sys_data);
    parse_cal_packet("Sensor_SN,ABCDEFGHIJ\nISFET_SN,X\nWRONG,Y\nPT_Cal_date,2024-03-14-Z\n"
                     "k2_C0,1.5\nk2_C9,2.5\n");
    EXPECT_EQ(shown(),
              "ABCDEFG\tX\t\t2024-03-14\t1.500000e+00\t0.000000e+00\t0.000000e+00\t0.000000e+00\t"
              "0.000000e+00\t0.000000e+00\t0.000000e+00\t0.000000e+00\t0.000000e+00\t0.000000e+00\t"
              "0.000000e+00\t\t0.000000e+00\t0.000000e+00\t0.000000e+00\t\r\n");
}

TEST_F(CalCoeffTest, PacketLinesLongerThan32CharactersAreCut) {
    char line[CAL_PACKET_LINE_MAX + 1];
    const char *text = "Sensor_SN,0123456789012345678901234\r\nISFET_SN,A\r\n"
                       "k0_Cal_date,01/01/2024_012345678\r\nx";
    const char *p = text;
    for (const char *want : {"Sensor_SN,0123456789012345678901", "234", "ISFET_SN,A",
                             "k0_Cal_date,01/01/2024_012345678", // 32: the line end is its own
                             "x"}) {
        p = egets(line, p);
        EXPECT_STREQ(line, want);
    }
    EXPECT_EQ(*p, '\0');
    EXPECT_EQ(egets(line, p), p); // the end of the text stays the end
    EXPECT_STREQ(line, "");
}

// "DF384.cal" from the card: the ISE number lands in isfet_SN, ise_SN stays;
// the PT and k0 dates and the k0 values are shown but not stored.
TEST_F(CalCoeffTest, CardImportOfDF384) {
    export_pH_sensor_cal_coeff();
    std::string listing = take();
    std::string file = listing.substr(listing.find("Sensor_SN"));
    file.replace(file.find("SN042"), 5, "SN9876543210");
    file.replace(file.find("IS888"), 5, "IS999");
    file.replace(file.find("k0_SW,-1.401200e+00"), 19, "k0_SW,-1.000000e+00");
    std::ofstream(card_ / "DF384.CAL", std::ios::binary) << file;
    strcpy(sys_data.cal_filename, "old.cal");
    memset(sys_data.K2_Cal, 0, sizeof sys_data.K2_Cal);
    memset(sys_data.fP_Cal, 0, sizeof sys_data.fP_Cal);
    strcpy(sys_data.PT_Cal_date, "x");
    strcpy(sys_data.service_date, "y");

    import_pH_sensor_cal_coeff();
    std::string o = take();
    std::string list = file; // what was read, each "key,value" shown as "key: value"
    for (size_t p; (p = list.find(',')) != std::string::npos;) {
        list.replace(p, 1, ": ");
    }
    list.replace(list.find("IF777"), 5, "IS999"); // the ISE number shown as the ISFET's
    EXPECT_EQ(o, "importing DF384.cal, " + std::to_string(file.size()) + " bytes...\r\n" + file +
                     "\r\nFilename: DF384.cal\r\n" + list + "\r\n");
    EXPECT_STREQ(sys_data.cal_filename, "DF384.cal");
    EXPECT_EQ(shown(), "SN98765\tIS999\tIS888\tx" + kHostLine.substr(28)); // K2 and fP read again

    fs::remove(card_ / "DF384.CAL");
    import_pH_sensor_cal_coeff();
    EXPECT_EQ(take(), "f_open error: FR_NO_FILE\r\n");
}

TEST_F(CalCoeffTest, OperatorEntryDialogue) {
    init_sys_data_default(); // k0int -0.4, k2int -0.001455, the thermistor's c0..c3
    sample();
    sys_data.TCOffset = 500.0f;
    sys_data.default_sal = 150.0f;
    std::vector<std::pair<std::string, std::string>> steps = {
        {"]: ", "5\r"},          {"]: ", "-0.5\r"},  // k0int: out of range, then taken
        {"]: ", "\r"},                               // k0ext kept
        {"]: ", "abc\r"},                            // k2int: no number, kept
        {"]: ", "-0.002\r"},                         // k2ext
        {"]: ", "\r"},                               // TCOffset (reset to 0 first)
        {"]: ", "35\r"},                             // salinity
        {"]: ", "600\r"},        {"]: ", "341.5\r"}, // c0
        {"]: ", "\r"},           {"]: ", "\r"},      {"]: ", "\r"},
        {"? ", "n\r"}, // no YMODEM transfer
        {"]: ", "\r"}, // cal_filename
        {"]: ", "SN12345678\r"}, {"]: ", "\r"},      {"]: ", "\r"},
        {"]: ", "\r"},           {"]: ", "1.5\r"}, // Fp C0
    };
    steps.insert(steps.end(), 6 + 4 + 2, {"]: ", "\r"}); // Fp C1..C6, K2 C0..C3, k0 date, k0_HCL
    // k0_SW, k0std_SW, service_date
    steps.insert(steps.end(), {{"]: ", "-1.25\r"}, {"]: ", "\r"}, {"]: ", "01/01/2025\r"}});
    auto op = std::make_shared<sim::Typist>(steps, 1);
    sim::attach_serial(UART0_BASE, op);

    enter_pH_sensor_cal_coeff();
    wait_consoleTx();
    EXPECT_EQ(op->answered(), steps.size());
    scenario::expect_in(
        op->seen,
        {"\r\nEnter k0int (ex. -0.4) [-0.400000]: 5",
         "Enter number between -2 and 2 (ex. -0.4)\r\nEnter k0int (ex. -0.4) [-0.400000]: ",
         "\r\nEnter TCOffset [0.000000]: ",
         "Salinity out of range, recommend running the test menu, qa board menu to initialize vars "
         "in eeprom\r\n\r\nEnter Salinity for Ext Ref pH calc (typical is 35) [150.000000]: ",
         "\r\n4 Var S-H coefficients for Thermistor to Temperature Celsius:\r\n"
         "     c0 = 340.98198630000\r\n     c1 = -0.00009102570\r\n"
         "     c2 = -95.08806667000\r\n     c3 = 0.965370.11l\r\n",
         "Enter number between 0 and 500 (ex. 340.9819863)", "c0 = 341.50000000000",
         "Transfer Cal file via Teraterm YMODEM? (Y/N) [N]? ",
         "sensor_SN [SN042]: SN12345678\r\n\r          [SN12345]\r\n",
         "Enter Fp C0  [1.000000e+00]: 1.5\r\n\r             [1.500000e+00]\r\n",
         "Enter Fp C1  [-2.123457e+00]: \r\n\rEnter Fp C2  ",
         "Enter k0_SW  [-1.401200e+00]: -1.25\r\n\r         [-1.250000e+00]\r\n",
         "service_date [05/16/2024]: 01/01/2025\r\n\r             [01/01/2025]\r\n"});

    EXPECT_EQ(
        row(sys_data.k0int, sys_data.k0ext, sys_data.k2int, sys_data.k2ext, sys_data.TCOffset,
            sys_data.default_sal, sys_data.fP_Cal[0], sys_data.k0_SW, sys_data.quadTherm_c0,
            sys_data.quadTherm_c1),
        row(-0.5f, -1.3f, -0.001455f, -0.002f, 0.0f, 35.0f, 1.5f, -1.25f, 341.5, -9.10257e-05));
    EXPECT_STREQ(sys_data.sensor_SN, "SN12345");
    EXPECT_STREQ(sys_data.cal_filename, "sn042.cal");
    EXPECT_STREQ(sys_data.service_date, "01/01/2025");
}

// At another baud rate than 115200 the import warns and waits 16 s after
// the transfer; Ctrl-C ends the receive.
TEST_F(CalCoeffTest, YmodemImportAtSlowBaud) {
    sys_data.baud_rate = 9600;
    auto op = std::make_shared<sim::Typist>(
        std::vector<sim::Typist::Step>{{"? ", "y\r"}, {"Ymodem rcv:\r\n", "\x03"}});
    sim::attach_serial(UART0_BASE, op);
    double t0 = sim::now_seconds();
    import_ymodem_cal_coeff();
    wait_consoleTx();
    EXPECT_GE(sim::now_seconds() - t0, 17.0);
    std::string expect = "\r\n\r\nTransfer Cal file via Teraterm YMODEM? (Y/N) [N]? y\r\n\r"
                         "OK!  Calling ymodem_receive...(Ctrl-C to cancel)\r\n"
                         "TeraTerm: File->Transfer->Ymodem->Send *.cal file\r\n"
                         "   Note: 15 sec delay after transfer for slow baud ymodem workaround\r\n"
                         "Ymodem rcv:\r\nC\x18\x18";
    for (int i = 0; i < 8; i++) {
        expect += "   delay...\r\n";
    }
    EXPECT_EQ(op->seen, expect + "\r\n\r\n");
    EXPECT_EQ(calFileFlg, 0);
}

} // namespace
