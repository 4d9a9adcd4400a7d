// YMODEM over the console line: the packets byte by byte against a scripted
// peer on the simulated console, and whole transfers against lrzsz (sb, rb)
// on the pseudo-terminal of the simulated instrument.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "devices.h"
#include "host_link.h"
#include "scenario.h"
#include "sim.h"

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/cal_coeff.h"
#include "console/user_io.h"
#include "core/main.h"
#include "core/system.h"
#include "ff.h"
#include "files/ymodem.h"
#include "hw_types.h"
#include "interrupt.h"
#include "sysctl.h"

namespace fs = std::filesystem;

namespace {

using namespace hostlink;

const std::string kAck = "\x06", kNak = "\x15", kCan = "\x18", kEot = "\x04";

std::string slurp(const fs::path &p) {
    std::ifstream f(p, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

void spill(const fs::path &p, const std::string &bytes) {
    std::ofstream f(p, std::ios::binary | std::ios::trunc);
    f << bytes;
}

// Bytes that are not text, so nothing in them looks like a protocol byte by
// accident of the test.
std::string pattern(size_t n, uint32_t seed) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; i++) {
        seed = seed * 1103515245u + 12345u;
        s[i] = char(seed >> 16);
    }
    return s;
}

// One packet as a sender puts it on the line; `comp` replaces the complement.
std::string packet(uint8_t block, const std::string &data, int comp = -1) {
    uint8_t head = data.size() == 128 ? YM_SOH : YM_STX;
    std::string p;
    p += char(head);
    p += char(block);
    p += char(comp >= 0 ? comp : (block ^ 0xFF));
    p += data;
    uint16_t crc = crc16(reinterpret_cast<const uint8_t *>(data.data()), uint32_t(data.size()));
    p += char(crc >> 8);
    p += char(crc & 0xFF);
    return p;
}

// A name, its NUL and what follows it.
std::string nul(const std::string &name, const std::string &rest) {
    return name + std::string(1, '\0') + rest;
}

std::string block0(const std::string &nameAndSize) {
    std::string d = nameAndSize;
    d.resize(128, '\0');
    return packet(0, d);
}

// The far end of the console line as a YMODEM receiver (or a typist with a
// timed script): answers the sender's handshake, every packet and EOT.
class Peer : public sim::SerialDevice {
  public:
    std::string seen;                 // every byte the board sent
    std::vector<std::string> packets; // whole packets, header to CRC
    int nakData = 0;                  // NAK this many data blocks first
    bool canData = false;             // answer a data block with CAN
    bool answerHandshake = true;      // answer the sender's first "C"

    void sendAt(uint64_t at, const std::string &bytes) {
        for (char c : bytes) {
            queue_.push_back({at, uint8_t(c)});
        }
    }
    uint64_t next_byte_at() override {
        if (queue_.empty()) {
            return sim::kNever;
        }
        return std::max(queue_.front().at, wireFree_) + kByte;
    }
    uint8_t take_byte() override {
        uint64_t t = next_byte_at();
        uint8_t b = queue_.front().byte;
        queue_.pop_front();
        wireFree_ = t;
        return b;
    }
    void receive(uint8_t b, uint64_t at) override {
        seen.push_back(char(b));
        if (need_ > 0) {
            cur_.push_back(char(b));
            if (--need_ == 0) {
                onPacket(at);
            }
            return;
        }
        if (b == YM_CRC && !started_ && answerHandshake) {
            started_ = true;
            sendAt(at, "C");
        } else if (started_ && (b == YM_SOH || b == YM_STX)) {
            cur_ = std::string(1, char(b));
            need_ = b == YM_SOH ? 132 : 1028;
        } else if (started_ && b == YM_EOT) {
            sendAt(at, kAck + "C");
        }
    }

  private:
    static constexpr uint64_t kByte = 10 * sim::kCpuHz / 115200;
    struct Byte {
        uint64_t at;
        uint8_t byte;
    };
    void onPacket(uint64_t at) {
        packets.push_back(cur_);
        if (uint8_t(cur_[1]) == 0) {
            sendAt(at, cur_[3] != 0 ? kAck + "C" : kAck);
        } else if (nakData > 0) {
            nakData--;
            sendAt(at, kNak);
        } else {
            sendAt(at, canData ? kCan : kAck);
        }
    }
    std::deque<Byte> queue_;
    uint64_t wireFree_ = 0;
    std::string cur_;
    int need_ = 0;
    bool started_ = false;
};

class YmodemTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bench::power_up();
        card_ = sim::card_dir(); // emptied by the board's reset
        ASSERT_EQ(f_mount(&fs_, "", 0), FR_OK);
        memset(&sys_data, 0, sizeof sys_data);
        strcpy(sys_data.fileName, "noname.txt");
        calFileFlg = 0;
        dbg_flag = 0;
        sim::console_take();
    }
    void TearDown() override { sim::reset_board(); }
    std::shared_ptr<Peer> attachPeer() {
        auto p = std::make_shared<Peer>();
        sim::attach_serial(UART0_BASE, p);
        return p;
    }
    static std::string out() { return bench::take(); }
    fs::path card_;
    FATFS fs_{};
};

TEST_F(YmodemTest, Crc16AndSizeTexts) {
    const char *check = "123456789";
    EXPECT_EQ(crc16(reinterpret_cast<const uint8_t *>(check), 9), 0x31C3);
    EXPECT_EQ(crc16(nullptr, 0), 0);
    char buf[12];
    EXPECT_EQ(u32_to_str(0, buf), 1u);
    EXPECT_STREQ(buf, "0");
    EXPECT_EQ(u32_to_str(4294967295u, buf), 10u);
    EXPECT_STREQ(buf, "4294967295");
    EXPECT_EQ(str_to_u32("1500 13000 100644"), 1500u);
    EXPECT_EQ(str_to_u32("1024000001"), 1024000001u);
    EXPECT_EQ(str_to_u32("99999999999"), 0xFFFFFFFFu);
    EXPECT_EQ(str_to_u32("x1"), 0u);
}

// 1500 bytes go as two 1024-byte blocks; the second repeats the tail of the
// first behind the file's last 476 bytes. Then EOT and the closing block 0.
TEST_F(YmodemTest, SenderSendsFullBlocksWithThePreviousTail) {
    std::string file = pattern(1500, 7);
    spill(card_ / "data.txt", file);
    auto peer = attachPeer();
    char a0[] = "ys", a1[] = "data.txt";
    char *argv[] = {a0, a1};
    ASSERT_EQ(ymodem_send(2, argv), 0);
    wait_consoleTx();

    ASSERT_EQ(peer->packets.size(), 4u);
    std::string b0 = peer->packets[0], b1 = peer->packets[1], b2 = peer->packets[2];
    EXPECT_EQ(b0.size(), 133u);
    EXPECT_EQ(b0.substr(0, 3), std::string("\x01\x00\xff", 3));
    std::string d0 = b0.substr(3, 128);
    EXPECT_EQ(d0.substr(0, 14), std::string("data.txt\0"
                                            "1500",
                                            13) +
                                    '\0');
    EXPECT_EQ(d0.find_first_not_of('\0', 13), std::string::npos);
    EXPECT_EQ(b1.substr(0, 3), std::string("\x02\x01\xfe", 3));
    EXPECT_EQ(b2.substr(0, 3), std::string("\x02\x02\xfd", 3));
    EXPECT_EQ(b1.substr(3, 1024), file.substr(0, 1024));
    EXPECT_EQ(b2.substr(3, 476), file.substr(1024));
    EXPECT_EQ(b2.substr(3 + 476, 548), file.substr(476, 548));
    for (const std::string &p : peer->packets) {
        EXPECT_EQ(crc16(reinterpret_cast<const uint8_t *>(p.data()) + 3, uint32_t(p.size() - 3)),
                  0);
    }
    EXPECT_EQ(peer->packets[3], block0(""));
    EXPECT_EQ(peer->seen.rfind("Ymodem sending data.txt, 1500 bytes...\r\n", 0), 0u);
    EXPECT_NE(peer->seen.find(kEot), std::string::npos);
    EXPECT_EQ(peer->seen.substr(peer->seen.size() - 18), "\r\nSent: data.txt\r\n");
}

// The host's "ys" names no file: the data file goes. NAKs make a block go
// again; a CAN ends the transfer at once.
TEST_F(YmodemTest, SenderResendsOnNakAndStopsOnCan) {
    spill(card_ / "noname.txt", "a short file\n");
    auto peer = attachPeer();
    peer->nakData = 2;
    EXPECT_EQ(ymodem_send(1, "ys"), 0);
    ASSERT_EQ(peer->packets.size(), 5u);
    EXPECT_EQ(peer->packets[0].substr(3, 14), std::string("noname.txt\0"
                                                          "13\0",
                                                          14));
    EXPECT_EQ(peer->packets[1], peer->packets[3]);
    EXPECT_EQ(peer->packets[1].substr(3, 13), "a short file\n");

    sim::reset_board();
    SetUp();
    spill(card_ / "noname.txt", "x");
    peer = attachPeer();
    peer->canData = true;
    EXPECT_EQ(ymodem_send(1, "ys"), -1);
    wait_consoleTx();
    EXPECT_EQ(peer->packets.size(), 2u);
    EXPECT_EQ(peer->seen.substr(peer->seen.size() - 20), kCan + kCan + "\r\nYmodem aborted\r\n");

    // No such file: nothing but the two CANs and the message.
    peer = attachPeer();
    char a0[] = "ys", a1[] = "absent.txt";
    char *argv[] = {a0, a1};
    EXPECT_EQ(ymodem_send(2, argv), -1);
    wait_consoleTx();
    EXPECT_EQ(peer->seen, kCan + kCan + "\r\nYmodem aborted\r\n");
}

// A whole batch: the complement byte is not looked at, a repeated block and a
// bad CRC are refused, the first EOT is refused, and the end of the batch
// leaves the file as the create-always reopen stretched to its size.
TEST_F(YmodemTest, ReceiverBatchAndItsEnd) {
    std::string a(128, 'A'), b(1024, 'B'), bad = packet(2, b);
    bad[10] ^= 1;
    sim::console_feed(block0(nul("data.txt", "300 1234 100644")) + packet(1, a, 0x00) +
                      packet(1, a) + bad + packet(2, b) + kEot + kEot + block0(""));
    EXPECT_EQ(ymodem_receive(1, "yr"), 0);
    EXPECT_EQ(out(), "Ymodem rcv:\r\nC" + kAck + "C" + kAck + kNak + kNak + kAck + kNak + kAck +
                         "C" + kAck);
    EXPECT_EQ(slurp(card_ / "DATA.TXT"), std::string(300, '\0'));
}

TEST_F(YmodemTest, ReceiverEndings) {
    struct {
        std::string feed;
        std::string tail;
    } cases[] = {
        {block0(nul("big.bin", "1024000001 0")),
         "\r\nYmodem aborted: File size larger than: 1000000 kB\r\n"},
        {"q", "\r\nYmodem aborted: Packet timeout error\r\n"},
        {std::string(1, '\x01') + "\x01", "\r\nYmodem aborted: Packet timeout error\r\n"},
        {kCan + kCan + "x" + kCan + kCan, "\r\nYmodem aborted: "},
        {block0(nul("waytoolong.txt", "5")), "\r\nYmodem aborted: File open error\r\n"},
    };
    for (auto &c : cases) {
        SCOPED_TRACE(c.tail);
        sim::console_feed(c.feed);
        EXPECT_EQ(ymodem_receive(1, "yr"), -1);
        std::string o = out();
        ASSERT_GE(o.size(), c.tail.size() + 2);
        EXPECT_EQ(o.substr(o.size() - c.tail.size() - 2), kCan + kCan + c.tail);
    }
    EXPECT_FALSE(fs::exists(card_ / "BIG.BIN"));

    // Line noise, in both modes: it ends, one way or another.
    for (int mode = 0; mode < 2; mode++) {
        calFileFlg = mode;
        sim::console_feed(pattern(5000, 99 + mode));
        EXPECT_EQ(ymodem_receive(1, "yr"), -1);
        EXPECT_EQ(calFileFlg, 0);
        out();
    }
}

// Nobody sends: a "C" every second for as long as that lasts.
TEST_F(YmodemTest, ReceiverAsksOnceASecondWithoutLimit) {
    auto peer = attachPeer();
    peer->answerHandshake = false;
    peer->sendAt(uint64_t(sim::now_seconds() * sim::kCpuHz) + 20 * sim::kCpuHz, "Q");
    EXPECT_EQ(ymodem_receive(1, "yr"), -1);
    size_t cs = std::count(peer->seen.begin(), peer->seen.end(), 'C');
    EXPECT_GE(cs, 20u);
    EXPECT_LE(cs, 21u);
}

// Calibration mode: only *.cal of at most 500 bytes; the file is parsed, not
// stored, and the sender is cancelled. A short file in 128-byte blocks is
// gathered up to its announced size first.
TEST_F(YmodemTest, ReceiverCalibrationMode) {
    const std::string cal = "Sensor_SN,S1\r\nISFET_SN,F2\r\nISE_SN,E3\r\nPT_Cal_date,01/02/2024\r\n"
                            "k2_C0,1.5e-01\r\nk2_C1,2\r\nk2_C2,3\r\nk2_C3,4\r\nfP_0,5\r\nfP_1,6\r\n"
                            "fP_2,7\r\nfP_3,8\r\nfP_4,9\r\nfP_5,10\r\nfP_6,11\r\n"
                            "k0_Cal_date,02/03/2024\r\nk0_HCl,-1.25\r\nk0_SW,-1.5\r\n"
                            "k0std_SW,0.001\r\nservice_date,03/04/2024\r\n";
    ASSERT_LE(cal.size(), 500u);
    const std::string sz = std::to_string(cal.size());
    std::string padded = cal;
    padded.resize(4 * 128, '\x1a');
    std::string small, smallAcks;
    for (size_t i = 0; i * 128 < cal.size(); i++) {
        smallAcks += i > 0 ? kAck : "";
        small += packet(uint8_t(i + 1), padded.substr(i * 128, 128));
    }
    std::string big = cal;
    big.resize(1024, '\x1a');

    struct {
        std::string name;
        std::string size;
        std::string blocks;
        bool parsed;
        std::string acks;
    } cases[] = {
        {"good.cal", sz, packet(1, big), true, kAck + "C"},
        {"short.cal", sz, small, true, kAck + "C" + smallAcks},
        {"bad.txt", sz, packet(1, big), false, ""},
        {"nodot", sz, packet(1, big), false, ""},
        {"big.cal", "501", packet(1, big), false, ""},
    };
    for (auto &c : cases) {
        SCOPED_TRACE(c.name);
        memset(&sys_data, 0, sizeof sys_data);
        calFileFlg = 1;
        sim::console_feed(block0(nul(c.name, c.size)) + c.blocks);
        EXPECT_EQ(ymodem_receive(1, "yr"), -1);
        EXPECT_EQ(calFileFlg, 0);
        std::string o = out();
        std::string expect = "Ymodem rcv:\r\nC" + c.acks + kCan + kCan;
        if (!c.parsed) {
            expect += "\r\nYmodem aborted: ";
        }
        EXPECT_EQ(o, expect);
        EXPECT_EQ(std::string(sys_data.sensor_SN), c.parsed ? "S1" : "");
        EXPECT_EQ(std::string(sys_data.cal_filename), c.parsed ? c.name : "");
        EXPECT_EQ(sys_data.fP_Cal[6], c.parsed ? 11.0f : 0.0f);
        EXPECT_EQ(std::string(sys_data.service_date), c.parsed ? "03/04/2024" : "");
        EXPECT_TRUE(fs::is_empty(card_));
        // Let the sender's remaining bytes pass before the next case.
        sim::advance_ms(200);
        UARTFlushRx();
    }
}

// ---- against lrzsz ------------------------------------------------------------

struct TempDir {
    TempDir() {
        char tmpl[] = "/tmp/fenwa-ympeer-XXXXXX";
        char *d = mkdtemp(tmpl);
        path = d != nullptr ? d : "/tmp";
    }
    ~TempDir() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    std::string path;
};

TEST(YmodemPeer, CardFileToRbAndSbFileToCard) {
    if (!have("sb") || !have("rb")) {
        GTEST_SKIP() << "lrzsz (sb, rb) is not installed: scripts/setup.sh installs it";
    }
    TempDir tmp;
    std::string state = tmp.path + "/state";
    fs::create_directories(state + "/card");
    std::string file = pattern(3000, 11);
    spill(state + "/card/noname.txt", file);

    Instrument sim({FENWA_SIM_PATH, "--state", state, "--pty"}, nullptr, state);
    ASSERT_FALSE(sim.ptyPath().empty()) << sim.messages();
    Line line(sim.ptyPath());
    ASSERT_TRUE(line.ok());
    ASSERT_TRUE(line.waitFor("\r\n>", 20)) << line.transcript();

    // Four Enters and a key open the menu; "5" the card command line.
    typeSlowly(line, "\r\r\r\rx");
    ASSERT_TRUE(line.waitFor("Enter Selection: ", 10)) << line.transcript();
    typeSlowly(line, "5\r");
    ASSERT_TRUE(line.waitFor("Unix-like command line", 10)) << line.transcript();
    const std::string prompt = "> ";
    ASSERT_TRUE(line.waitFor(prompt, 10)) << line.transcript();
    typeSlowly(line, "ys noname.txt\r");
    ASSERT_TRUE(line.waitFor("Ymodem sending noname.txt, 3000 bytes...\r\n", 10))
        << line.transcript();
    // The sender empties its input a second after that line: rb starts after
    // it, so its first "C" is not thrown away.
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    TempDir down;
    EXPECT_EQ(runTool({"rb", "-q"}, down.path, line.path(), 90), 0)
        << slurp(down.path + "/tool.log");
    EXPECT_EQ(slurp(down.path + "/noname.txt"), file);
    // rb empties the terminal's input as it leaves, and with it what the
    // instrument said right after the last block ("Sent: ..."): ask for a
    // fresh prompt instead.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    typeSlowly(line, "\r");
    ASSERT_TRUE(line.waitFor(prompt, 10)) << line.transcript();

    // sb sends a file to the card: the batch's end leaves it at its size, as
    // the create-always reopen stretched it.
    TempDir up;
    spill(up.path + "/upload.bin", pattern(2500, 5));
    typeSlowly(line, "yr\r");
    ASSERT_TRUE(line.waitFor("Ymodem rcv:\r\n", 10)) << line.transcript();
    EXPECT_EQ(runTool({"sb", "-k", "-q", "upload.bin"}, up.path, line.path(), 90), 0)
        << slurp(up.path + "/tool.log");
    std::string stored;
    for (int i = 0; i < 50; i++) {
        stored = slurp(state + "/card/UPLOAD.BIN");
        if (stored.size() == 2500) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(stored, std::string(2500, '\0'));
}

} // namespace
