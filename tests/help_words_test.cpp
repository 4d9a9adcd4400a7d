// Every command our main-menu help offers is answered, at the prompt or in
// the deployed command loop it is listed under, by something other than NAK.
// The forms are read from the help page itself.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "scenario.h"

using scenario::Board;

namespace {

const std::string kOpenMenu = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n";
const char *const kPromptSection = "Host commands at the > prompt";
const char *const kDeployedSection = "Deployed, within 5 s of the key that wakes the board";

// The help page as the operator sees it.
std::string helpPage() {
    Board b;
    auto r = b.run(kOpenMenu + "3 H\\r\n", 5);
    size_t from = r.out.find("\r\nMain menu\r\n");
    size_t to = r.out.find("Press Enter: ", from);
    return from == std::string::npos || to == std::string::npos ? ""
                                                                : r.out.substr(from, to - from);
}

// The forms of the command lines ("  forms: what") under `section`, with
// example values for the upper-case placeholders.
std::vector<std::string> forms(const std::string &page, const std::string &section) {
    const std::pair<const char *, const char *> kExamples[] = {
        {"MM/DD/YY", "12/31/24"}, {"HH:MM:SS", "23:59:00"}, {"NAME", "data.txt"}, {"N", "20"}};
    std::vector<std::string> out;
    std::istringstream in(page);
    std::string line;
    bool inSection = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.rfind("  ", 0) != 0) {
            inSection = line == section;
            continue;
        }
        size_t colon = line.find(": ");
        if (!inSection || colon == std::string::npos) {
            continue;
        }
        std::istringstream list(line.substr(2, colon - 2));
        std::string form;
        while (std::getline(list, form, ',')) {
            form.erase(0, form.find_first_not_of(' '));
            for (const auto &ex : kExamples) {
                size_t p = form.find(ex.first);
                if (p != std::string::npos) {
                    form.replace(p, strlen(ex.first), ex.second);
                }
            }
            out.push_back(form);
        }
    }
    return out;
}

} // namespace

TEST(HelpWords, EveryOfferedCommandIsAnswered) {
    const std::string page = helpPage();
    ASSERT_FALSE(page.empty());
    const auto atPrompt = forms(page, kPromptSection);
    const auto deployed = forms(page, kDeployedSection);
    ASSERT_GE(atPrompt.size(), 15u) << page;
    ASSERT_GE(deployed.size(), 8u) << page;
    for (const auto &f : atPrompt) {
        SCOPED_TRACE("> " + f);
        Board b;
        auto r = b.run("1 " + f + "\\r\n", 4);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out.find("NAK"), std::string::npos) << r.out;
    }
    for (const auto &f : deployed) {
        SCOPED_TRACE("deployed " + f);
        Board b;
        b.run("1 period 3600\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n4.2 \\r\n", 10);
        ASSERT_EQ(scenario::u32(b.fram(), 64 + 0), 1u); // deployed
        auto r = b.run("1 x\n2 " + f + "\\r\n", 6);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out.find("NAK"), std::string::npos) << r.out;
    }
}

// The help names only what the instrument does: no "menu" word (a host types
// "m"), and "gdata" is the data file's new lines, not an error log.
TEST(HelpWords, NoWordThatIsRefused) {
    const std::string page = helpPage();
    EXPECT_EQ(page.find("menu opens"), std::string::npos);
    EXPECT_EQ(page.find("error log"), std::string::npos);
    Board b;
    EXPECT_NE(b.run("1 menu\\r\n", 3).out.find("NAK"), std::string::npos);
}
