// The fenwa-sim command line: one table of options (add a row and an Options
// field for a new knob), its inverse for harnesses that start the program,
// and the program itself.
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "energy.h"
#include "sim.h"

namespace sim {

namespace {

struct Opt {
    const char *name;
    const char *arg; // nullptr: a switch
    const char *help;
    std::function<bool(Options &, const std::string &, std::string &)> set;
};

bool number(const std::string &v, double &out, std::string &err, const char *what) {
    char *end = nullptr;
    out = std::strtod(v.c_str(), &end);
    if (v.empty() || *end != '\0' || !std::isfinite(out) || out < 0) {
        err = std::string(what) + " must be a number of seconds, not '" + v + "'";
        return false;
    }
    return true;
}

bool value(const std::string &v, double &out, std::string &err, const char *what, double lo,
           double hi) {
    char *end = nullptr;
    out = std::strtod(v.c_str(), &end);
    if (v.empty() || *end != '\0' || !std::isfinite(out) || out < lo || out > hi) {
        err = std::string(what) + " must be a number from " + std::to_string(lo) + " to " +
              std::to_string(hi) + ", not '" + v + "'";
        return false;
    }
    return true;
}

bool choice(const std::string &v, std::string &out, std::string &err, const char *what,
            std::initializer_list<const char *> allowed) {
    for (const char *a : allowed) {
        if (v == a) {
            out = v;
            return true;
        }
    }
    err = std::string(what) + ": unknown value '" + v + "'";
    return false;
}

const std::vector<Opt> &table() {
    static const std::vector<Opt> t = {
        {"--state", "DIR", "board state folder (default ./fenwa-state)",
         [](Options &o, const std::string &v, std::string &) {
             o.state_dir = v;
             return true;
         }},
        {"--script", "FILE",
         "type a timed script (\"-\" = stdin); console output to stdout, fast time",
         [](Options &o, const std::string &v, std::string &) {
             o.script_path = v;
             o.has_script = true;
             return true;
         }},
        {"--for", "SECONDS",
         "stop after this much simulated time (a deployed board awake then runs on to its "
         "next hibernation)",
         [](Options &o, const std::string &v, std::string &err) {
             return number(v, o.for_seconds, err, "--for");
         }},
        {"--cut-power-at", "SECONDS",
         "cut the power at this simulated time, whatever the board is doing",
         [](Options &o, const std::string &v, std::string &err) {
             return number(v, o.cut_at_seconds, err, "--cut-power-at");
         }},
        {"--pty", nullptr, "console on a new pseudo-terminal (its path is printed)",
         [](Options &o, const std::string &, std::string &) {
             o.pty = true;
             return true;
         }},
        {"--realtime", nullptr, "the clock follows the wall clock",
         [](Options &o, const std::string &, std::string &) {
             o.realtime = 1;
             return true;
         }},
        {"--fast", nullptr, "the clock runs as fast as it can",
         [](Options &o, const std::string &, std::string &) {
             o.realtime = 0;
             return true;
         }},
        {"--rtc", "SECONDS", "set the RTC (seconds since 1970) at start",
         [](Options &o, const std::string &v, std::string &err) {
             double d;
             if (!number(v, d, err, "--rtc") || d > 4294967295.0) {
                 err = "--rtc must be seconds since 1970 (0 to 4294967295)";
                 return false;
             }
             o.rtc = int64_t(d);
             return true;
         }},
        {"--ph", "PH", "pH of the water at the sensor (default 8.0)",
         [](Options &o, const std::string &v, std::string &err) {
             return value(v, o.env.ph, err, "--ph", 0, 14);
         }},
        {"--temp", "C", "water temperature in degrees Celsius (default 15)",
         [](Options &o, const std::string &v, std::string &err) {
             return value(v, o.env.temp_c, err, "--temp", -5, 45);
         }},
        {"--sal", "S", "practical salinity of the water (default 35)",
         [](Options &o, const std::string &v, std::string &err) {
             return value(v, o.env.salinity, err, "--sal", 0, 45);
         }},
        {"--seed", "N", "seed of the noise generators (default 1)",
         [](Options &o, const std::string &v, std::string &err) {
             double d = 0;
             if (!value(v, d, err, "--seed", 0, 4294967295.0)) {
                 return false;
             }
             o.env.seed = uint64_t(d);
             return true;
         }},
        {"--battery-mAh", "MAH", "battery capacity: days on it in the energy figures",
         [](Options &o, const std::string &v, std::string &err) {
             return value(v, o.battery_mah, err, "--battery-mAh", 0, 1e9);
         }},
        {"--currents", "FILE", "override currents of the energy account (\"key = mA\" lines)",
         [](Options &o, const std::string &v, std::string &err) {
             o.currents_path = v;
             return load_currents(v, err);
         }},
        {"--ctd", "TYPE", "CTD on the CTD port: sbe37, aand5860 or none",
         [](Options &o, const std::string &v, std::string &err) {
             return choice(v, o.env.ctd, err, "--ctd", {"none", "sbe37", "aand5860"});
         }},
        {"--inst", "TYPE", "instrument on the optode port: optode, ocr, nanofet, picoph or none",
         [](Options &o, const std::string &v, std::string &err) {
             return choice(v, o.env.inst, err, "--inst",
                           {"none", "optode", "ocr", "nanofet", "picoph"});
         }},
        {"--ctd-fault", "KIND", "CTD misbehaves: silent, late, garbage or long",
         [](Options &o, const std::string &v, std::string &err) {
             return choice(v, o.env.ctd_fault, err, "--ctd-fault",
                           {"silent", "late", "garbage", "long"});
         }},
        {"--inst-fault", "KIND", "instrument misbehaves: silent, late, garbage or long",
         [](Options &o, const std::string &v, std::string &err) {
             return choice(v, o.env.inst_fault, err, "--inst-fault",
                           {"silent", "late", "garbage", "long"});
         }},
        {"--adc-fault", "KIND", "ADC misbehaves: nodrdy (never signals a conversion)",
         [](Options &o, const std::string &v, std::string &err) {
             return choice(v, o.env.adc_fault, err, "--adc-fault", {"nodrdy"});
         }},
        {"--card-absent", nullptr, "no card in the slot",
         [](Options &o, const std::string &, std::string &) {
             o.card_absent = true;
             return true;
         }},
        {"--card-full", nullptr, "the card has no free cluster",
         [](Options &o, const std::string &, std::string &) {
             o.card_full = true;
             return true;
         }},
        {"--card-error", nullptr, "every card access fails with a disk error",
         [](Options &o, const std::string &, std::string &) {
             o.card_error = true;
             return true;
         }},
        {"--blank-eeprom", nullptr, "a new state folder gets an erased EEPROM (all 0xFF)",
         [](Options &o, const std::string &, std::string &) {
             o.blank_eeprom = true;
             return true;
         }},
        {"--hib-fail", nullptr, "hibernation requests fail (HibernateRequest returns)",
         [](Options &o, const std::string &, std::string &) {
             o.hib_fail = true;
             return true;
         }},
        {"--eeprom-error", nullptr, "EEPROMInit reports an error",
         [](Options &o, const std::string &, std::string &) {
             o.eeprom_error = true;
             return true;
         }},
        {"--progress", nullptr, "show progress on stderr (default: when it is a terminal)",
         [](Options &o, const std::string &, std::string &) {
             o.progress = 1;
             return true;
         }},
        {"--no-progress", nullptr, "no progress display",
         [](Options &o, const std::string &, std::string &) {
             o.progress = 0;
             return true;
         }},
        {"--result", "FILE", "write a summary of the run (key = value) for a harness",
         [](Options &o, const std::string &v, std::string &) {
             o.result_path = v;
             return true;
         }},
    };
    return t;
}

} // namespace

std::string usage() {
    std::string u =
        "usage: fenwa-sim [--state DIR] [--script FILE] [--for SECONDS] [--cut-power-at SECONDS]\n"
        "                 [--pty] "
        "[--realtime|--fast]\n"
        "                 [--rtc SECONDS] [--card-absent] [--card-full] [--card-error]\n"
        "                 [--blank-eeprom] [--hib-fail] [--help]\n"
        "Runs the Fenwa controller firmware on a simulated board.\n"
        "Without --script the console is this terminal (Ctrl-] or Ctrl-C stops).\n"
        "Stopping (--for, SIGTERM, SIGINT, Ctrl-], Ctrl-C): a deployed board that is awake\n"
        "runs on to its next hibernation, so the next run on the folder resumes its\n"
        "schedule; any other board stops at once (its next start is a power-on). A second\n"
        "request, --cut-power-at or SIGKILL cuts the power at that instant: the EEPROM,\n"
        "FRAM and clock keep what the board had written, and the hibernation module runs\n"
        "on from its backup cell, as on the real board after its supply is lost: a\n"
        "deployment goes on. A cut between a sample's card append and its FRAM store\n"
        "takes that sample again after the power returns (its number is on the card\n"
        "twice), as the real board does.\n"
        "Script lines: SECONDS TEXT (C escapes \\r \\n \\t \\\\ \\xHH; # comments).\n\n";
    for (const Opt &o : table()) {
        std::string left = std::string("  ") + o.name + (o.arg ? std::string(" ") + o.arg : "");
        left.resize(std::max<size_t>(left.size() + 1, 22), ' ');
        u += left + o.help + "\n";
    }
    u += "  --help              this text\n";
    return u;
}

bool parse_args(int argc, char **argv, Options &o, std::string &err, bool &help) {
    help = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            help = true;
            return true;
        }
        std::string value;
        bool inline_value = false;
        size_t eq = a.find('=');
        if (a.rfind("--", 0) == 0 && eq != std::string::npos) {
            value = a.substr(eq + 1);
            a = a.substr(0, eq);
            inline_value = true;
        }
        const Opt *found = nullptr;
        for (const Opt &opt : table()) {
            if (a == opt.name) {
                found = &opt;
            }
        }
        if (found == nullptr) {
            err = "unknown option '" + std::string(argv[i]) + "'";
            return false;
        }
        if (found->arg != nullptr && !inline_value) {
            if (i + 1 >= argc) {
                err = a + " needs " + found->arg;
                return false;
            }
            value = argv[++i];
        } else if (found->arg == nullptr && inline_value) {
            err = a + " takes no value";
            return false;
        }
        if (!found->set(o, value, err)) {
            return false;
        }
    }
    return true;
}

std::vector<std::string> to_args(const Options &o) {
    std::vector<std::string> a = {"--state", o.state_dir};
    if (!o.script_path.empty()) {
        a.insert(a.end(), {"--script", o.script_path});
    }
    if (o.for_seconds >= 0) {
        char b[64];
        std::snprintf(b, sizeof b, "%.17g", o.for_seconds);
        a.insert(a.end(), {"--for", b});
    }
    if (o.cut_at_seconds >= 0) {
        char b[64];
        std::snprintf(b, sizeof b, "%.17g", o.cut_at_seconds);
        a.insert(a.end(), {"--cut-power-at", b});
    }
    if (o.pty) {
        a.push_back("--pty");
    }
    if (o.realtime == 1) {
        a.push_back("--realtime");
    } else if (o.realtime == 0) {
        a.push_back("--fast");
    }
    if (o.rtc >= 0) {
        a.insert(a.end(), {"--rtc", std::to_string(o.rtc)});
    }
    {
        const Environment d;
        auto num = [&a](const char *flag, double v) {
            char b[64];
            std::snprintf(b, sizeof b, "%.17g", v);
            a.insert(a.end(), {flag, b});
        };
        if (o.env.ph != d.ph) {
            num("--ph", o.env.ph);
        }
        if (o.env.temp_c != d.temp_c) {
            num("--temp", o.env.temp_c);
        }
        if (o.env.salinity != d.salinity) {
            num("--sal", o.env.salinity);
        }
        if (o.env.seed != d.seed) {
            a.insert(a.end(), {"--seed", std::to_string(o.env.seed)});
        }
        const std::pair<const char *, const std::string *> words[] = {
            {"--ctd", &o.env.ctd},
            {"--inst", &o.env.inst},
            {"--ctd-fault", &o.env.ctd_fault},
            {"--inst-fault", &o.env.inst_fault},
            {"--adc-fault", &o.env.adc_fault}};
        for (const auto &w : words) {
            if (!w.second->empty() && *w.second != "none") {
                a.insert(a.end(), {w.first, *w.second});
            }
        }
    }
    if (o.card_absent) {
        a.push_back("--card-absent");
    }
    if (o.card_full) {
        a.push_back("--card-full");
    }
    if (o.card_error) {
        a.push_back("--card-error");
    }
    if (o.blank_eeprom) {
        a.push_back("--blank-eeprom");
    }
    if (o.hib_fail) {
        a.push_back("--hib-fail");
    }
    if (o.eeprom_error) {
        a.push_back("--eeprom-error");
    }
    if (o.progress == 1) {
        a.push_back("--progress");
    } else if (o.progress == 0) {
        a.push_back("--no-progress");
    }
    if (!o.result_path.empty()) {
        a.insert(a.end(), {"--result", o.result_path});
    }
    if (!o.currents_path.empty()) {
        a.insert(a.end(), {"--currents", o.currents_path});
    }
    if (o.battery_mah > 0) {
        char b[32];
        std::snprintf(b, sizeof b, "%.17g", o.battery_mah);
        a.insert(a.end(), {"--battery-mAh", b});
    }
    return a;
}

int cli_main(int argc, char **argv) {
    Options o;
    std::string err;
    bool help = false;
    if (!parse_args(argc, argv, o, err, help)) {
        std::fprintf(stderr, "fenwa-sim: %s\n%s", err.c_str(), usage().c_str());
        return 2;
    }
    if (help) {
        std::fputs(usage().c_str(), stdout);
        return 0;
    }
    RunResult r = run_here(o, 1);
    return r.exit_code;
}

} // namespace sim
