// The whole card stack on a FAT image formatted as a technician formats a
// card (mkfs.fat): the firmware's own card operations through FatFs R0.16,
// the disk layer, SSI0 and the SPI card model, run by fenwa-sim --card-image.
// Then mtools, a FAT implementation nobody here wrote, reads the image: the
// names, sizes, times and contents must be what the firmware reported.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "host_link.h"
#include "scenario.h"
#include "sim.h"
#include "ymodem_bytes.h"

namespace fs = std::filesystem;

namespace {

const std::vector<std::string> kAtNewYear = {"--rtc", "1735689600"}; // 2025/01/01 00:00:00

// Standard output of a shell command, and whether it exited with 0.
bool shell(const std::string &cmd, std::string &out) {
    out.clear();
    FILE *p = popen((cmd + " 2>/dev/null").c_str(), "r");
    if (p == nullptr) {
        return false;
    }
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) {
        out.append(buf, n);
    }
    return pclose(p) == 0;
}

struct Entry {
    std::string size, stamp; // "<DIR>" for a folder; "YYYY/MM/DD HH:MM"
    bool operator==(const Entry &o) const { return size == o.size && stamp == o.stamp; }
};
using Listing = std::map<std::string, Entry>;

// The card command line's "ls": "----A 2025/01/01 00:06        90  NAME.EXT".
Listing firmware_ls(const std::string &text) {
    static const std::regex line(R"(([-RHSDA]{5}) (\d{4}/\d\d/\d\d \d\d:\d\d) +(\d+)  (\S+)\r)");
    Listing l;
    for (std::sregex_iterator it(text.begin(), text.end(), line), end; it != end; ++it) {
        const std::smatch &m = *it;
        l[m[4]] = {m[1].str()[0] == 'D' ? "<DIR>" : m[3].str(), m[2]};
    }
    return l;
}

// mdir's listing: "NONAME   TXT      3077 2025-01-01   0:06" in fixed columns.
Listing mtools_ls(const std::string &text) {
    static const std::regex rest(R"( +(\d+|<DIR>) +(\d{4})-(\d\d)-(\d\d) +(\d+):(\d\d))");
    Listing l;
    std::istringstream in(text);
    for (std::string s; std::getline(in, s);) {
        std::smatch m;
        if (s.size() < 13 || s[0] == ' ' || s[0] == '.' ||
            !std::regex_search(s.cbegin() + 12, s.cend(), m, rest)) {
            continue;
        }
        auto trim = [](std::string t) { return t.erase(t.find_last_not_of(' ') + 1); };
        std::string name = trim(s.substr(0, 8)), ext = trim(s.substr(9, 3));
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%s/%s/%s %02d:%s", m[2].str().c_str(),
                      m[3].str().c_str(), m[4].str().c_str(), std::stoi(m[5]), m[6].str().c_str());
        l[ext.empty() ? name : name + "." + ext] = {m[1], stamp};
    }
    return l;
}

} // namespace

TEST(CardStack, FirmwareWritesWhatMtoolsReads) {
    if (!sim::card_image_built()) {
        GTEST_SKIP() << "no FatFs R0.16 in this build: configure with -DFENWA_FATFS_DIR "
                        "(scripts/test.sh uses ../shared/third_party/fatfs when it is there)";
    }
    for (const char *tool : {"mkfs.fat", "mdir", "mtype"}) {
        if (!hostlink::have(tool)) {
            GTEST_SKIP() << tool << " is not installed: scripts/setup.sh installs dosfstools "
                         << "and mtools";
        }
    }
    scenario::Board b;
    const std::string img = (fs::path(b.dir()).parent_path() / "card.img").string();
    std::string out;
    ASSERT_TRUE(shell("mkfs.fat -C -F 32 -n FENWA " + img + " 65536", out));
    std::vector<std::string> card = kAtNewYear;
    card.insert(card.end(), {"--card-image", img});
    auto mtype = [&](const std::string &path) {
        EXPECT_TRUE(shell("mtype -i " + img + " ::" + path, out)) << path;
        return out;
    };

    // A deployment of 400 s: the header block, then a sample every 20 s.
    ASSERT_EQ(b.run("1 period 20\\r\n", 2, card).status, 0);
    std::string deploy = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 4\\r\n3.2 \\r\n";
    ASSERT_EQ(b.run(deploy, 400, {"--card-image", img}).status, 0);
    std::string data = mtype("NONAME.TXT");
    size_t first = data.find("#0000000\t01/01/2025 00:00:07\t");
    ASSERT_NE(first, std::string::npos) << data;
    std::string samples = data.substr(first);
    EXPECT_EQ(scenario::count(samples, "\r\n"), 20u);
    EXPECT_NE(samples.find("#0000019\t01/01/2025 00:06:25\t"), std::string::npos);
    EXPECT_NE(data.find("//++************** Deployment Settings ***************\r\n"),
              std::string::npos);

    // "gdata" on the host link pages the samples behind the header; "stop" ends
    // the deployment before its next sample.
    auto g = b.run("1 \\r\n2 gdata\\r\n3.5 stop\\r\n", 12, {"--card-image", img});
    ASSERT_EQ(g.status, 0) << g.err;
    EXPECT_NE(g.out.find("gdata\r\n\r" + samples), std::string::npos) << g.out;

    // The card command line, and a file received by YMODEM.
    const std::string sent = "pH 8.07 at the mooring\r\nsecond line\r\n";
    std::string s = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 5\\r\n";
    double t = 4;
    for (const char *cmd :
         {"mkdir logs", "cd logs", "mkdir old", "yr", "", "cd /", "mv logs/recv.txt logs/note.txt",
          "cat logs/note.txt", "ls", "cd logs", "ls", "rm old", "ls", "exit"}) {
        // after "yr" the terminal sends the batch, received into the current folder
        std::string line =
            *cmd ? std::string(cmd) + "\\r" : ymbytes::escaped(ymbytes::batch("recv.txt", sent));
        s += std::to_string(t) + " " + line + "\n";
        t += 1.5;
    }
    auto r = b.run(s, 0, {"--card-image", img});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string &o = r.out;
    EXPECT_NE(o.find("Ymodem rcv:"), std::string::npos) << o;
    EXPECT_NE(o.find("cat logs/note.txt\r\n\r" + sent), std::string::npos) << o;

    // What each "ls" showed is what mdir sees, folder by folder.
    size_t rootLs = o.find("/> ls\r\n"), logsLs = o.find("/logs> ls\r\n");
    size_t afterRm = o.find("/logs> ls\r\n", logsLs + 1);
    ASSERT_NE(afterRm, std::string::npos) << o;
    Listing root = firmware_ls(o.substr(rootLs, logsLs - rootLs));
    Listing logsBefore = firmware_ls(o.substr(logsLs, afterRm - logsLs));
    Listing logsAfter = firmware_ls(o.substr(afterRm));
    ASSERT_TRUE(shell("mdir -i " + img + " ::", out));
    EXPECT_EQ(mtools_ls(out), root) << out;
    ASSERT_TRUE(shell("mdir -i " + img + " ::/LOGS", out));
    EXPECT_EQ(mtools_ls(out), logsAfter) << out;

    const Listing wantRoot = {{"NONAME.TXT", {std::to_string(data.size()), "2025/01/01 00:06"}},
                              {"LOGS", {"<DIR>", root["LOGS"].stamp}}};
    EXPECT_EQ(root, wantRoot);
    EXPECT_EQ(logsBefore.count("OLD"), 1u);
    EXPECT_EQ(logsAfter.count("OLD"), 0u);
    EXPECT_EQ(logsAfter["NOTE.TXT"].size, std::to_string(sent.size()));
    EXPECT_EQ(mtype("LOGS/NOTE.TXT"), sent);
    EXPECT_EQ(mtype("NONAME.TXT"), data);
}
