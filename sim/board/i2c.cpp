// I2C 0 master with the controller's command semantics, and the FRAM at 0x50.
// Each I2CMasterControl step occupies the bus for its bit times; the target
// devices answer byte by byte. An address nobody answers is not acknowledged
// and reads 0xFF.
#include <cstdio>
#include <vector>

#include "board.h"
#include "i2c.h"

namespace sim {

namespace {
constexpr uint32_t kFramMask = kFramBytes - 1;

// 32 KB FRAM: a write's first two bytes set the memory address, further bytes
// store and advance it; reads continue from it. No write delay.
class Fram : public I2cDevice {
  public:
    explicit Fram(BoardState *st) : st_(st) {}
    void start(bool read) override {
        end_write();
        if (!read) {
            addr_bytes_ = 0;
        }
    }
    void stop() override { end_write(); }
    bool write(uint8_t byte) override {
        if (addr_bytes_ == 0) {
            hi_ = byte;
            addr_bytes_ = 1;
        } else if (addr_bytes_ == 1) {
            ptr_ = ((uint32_t(hi_) << 8) | byte) & kFramMask;
            addr_bytes_ = 2;
        } else {
            if (g_power_cut_armed) {
                if (written_.empty()) {
                    first_ = ptr_;
                }
                written_.push_back(st_->fram[ptr_]);
            }
            st_->fram[ptr_] = byte;
            ptr_ = (ptr_ + 1) & kFramMask;
        }
        return true;
    }
    uint8_t read(bool) override {
        uint8_t v = st_->fram[ptr_];
        ptr_ = (ptr_ + 1) & kFramMask;
        return v;
    }

  private:
    // A write transaction is one write point; torn, only its first half stays.
    void end_write() {
        if (written_.empty()) {
            return;
        }
        uint32_t n = uint32_t(written_.size());
        uint32_t kept = write_point("fram", first_, n);
        for (uint32_t i = kept; i < n; i++) {
            st_->fram[(first_ + i) & kFramMask] = written_[i];
        }
        written_.clear();
        if (kept < n) {
            power_cut_now();
        }
    }
    BoardState *st_;
    std::vector<uint8_t> written_; // what the transaction's bytes replaced
    uint32_t first_ = 0;
    int addr_bytes_ = 0;
    uint8_t hi_ = 0;
    uint32_t ptr_ = 0;
};
} // namespace

void install_board_devices(Board &b) {
    b.i2c.devices[0x50] = std::make_shared<Fram>(b.st);
    install_adc_devices(b);
    install_i2c_sensors(b);
    install_serial_instruments(b);
}

void I2cBus::power_on() {
    enabled = false;
    bit_cycles = kCpuHz / 100000;
    addr = 0;
    rx_dir = false;
    data_out = data_in = 0;
    err = 0;
    busy_until = 0;
    in_txn = false;
    cur_read = false;
    cur = nullptr;
}

void I2cBus::note(I2cEvent e) {
    if (logging && log.size() < 1000000) {
        log.push_back(e);
    }
}

void attach_i2c(uint8_t addr, std::shared_ptr<I2cDevice> dev) {
    I2cBus &bus = board().i2c;
    if (dev) {
        bus.devices[addr] = std::move(dev);
    } else {
        bus.devices.erase(addr);
    }
}

const std::vector<I2cEvent> &i2c_log() {
    return board().i2c.log;
}
void i2c_log_clear() {
    board().i2c.log.clear();
}

std::string i2c_log_text() {
    std::string s;
    char buf[32];
    for (const I2cEvent &e : board().i2c.log) {
        if (!s.empty()) {
            s += ' ';
        }
        switch (e.kind) {
        case I2cEvent::Start:
            std::snprintf(buf, sizeof buf, "[%02X %c%s]", e.addr, e.read ? 'R' : 'W',
                          e.ack ? "" : " NACK");
            break;
        case I2cEvent::Write:
            std::snprintf(buf, sizeof buf, "%02X%s", e.data, e.ack ? "" : "!");
            break;
        case I2cEvent::Read:
            std::snprintf(buf, sizeof buf, "%02X", e.data);
            break;
        case I2cEvent::Stop:
            std::snprintf(buf, sizeof buf, "P");
            break;
        }
        s += buf;
    }
    return s;
}

} // namespace sim

// ---- platform functions -----------------------------------------------------
using sim::board;

namespace {
sim::I2cBus *bus(uint32_t base) {
    sim::Board &b = board();
    b.call();
    return base == I2C0_BASE ? &b.i2c : nullptr;
}
} // namespace

void I2CMasterInitExpClk(uint32_t base, uint32_t, bool fast) {
    if (sim::I2cBus *i = bus(base)) {
        i->enabled = true;
        i->bit_cycles = sim::kCpuHz / (fast ? 400000 : 100000);
    }
}

void I2CMasterEnable(uint32_t base) {
    if (sim::I2cBus *i = bus(base)) {
        i->enabled = true;
    }
}

void I2CMasterSlaveAddrSet(uint32_t base, uint8_t slaveAddr, bool receive) {
    if (sim::I2cBus *i = bus(base)) {
        i->addr = slaveAddr & 0x7F;
        i->rx_dir = receive;
    }
}

void I2CMasterDataPut(uint32_t base, uint8_t data) {
    if (sim::I2cBus *i = bus(base)) {
        i->data_out = data;
    }
}

uint32_t I2CMasterDataGet(uint32_t base) {
    sim::I2cBus *i = bus(base);
    return i != nullptr ? i->data_in : 0;
}

// Command bits: RUN 0x01, START 0x02, STOP 0x04, ACK 0x08.
void I2CMasterControl(uint32_t base, uint32_t cmd) {
    sim::I2cBus *i = bus(base);
    if (i == nullptr) {
        return;
    }
    uint64_t now = board().now();
    bool run = cmd & 0x01u, start = cmd & 0x02u, stop = cmd & 0x04u, ack = cmd & 0x08u;
    uint32_t bits = 0;
    i->err = 0;
    if (start) {
        bits += 9;
        auto it = i->devices.find(i->addr);
        i->cur = it != i->devices.end() ? it->second.get() : nullptr;
        i->cur_read = i->rx_dir;
        i->note({sim::I2cEvent::Start, i->addr, i->rx_dir, 0, i->cur != nullptr, now});
        if (i->cur == nullptr) {
            // nobody acknowledged the address: the controller gives the bus up
            i->err = I2C_MASTER_ERR_ADDR_ACK;
            i->data_in = 0xFF;
            if (i->in_txn) {
                i->note({sim::I2cEvent::Stop, 0, false, 0, true, now});
            }
            i->in_txn = false;
            i->busy_until = now + bits * i->bit_cycles;
            return;
        }
        i->in_txn = true;
        i->cur->start(i->cur_read);
    }
    if (run) {
        if (!i->in_txn || i->cur == nullptr) {
            i->err = I2C_MASTER_ERR_ADDR_ACK;
            i->data_in = 0xFF;
        } else if (i->cur_read) {
            i->data_in = i->cur->read(ack);
            i->note({sim::I2cEvent::Read, i->addr, true, i->data_in, ack, now});
        } else {
            bool acked = i->cur->write(i->data_out);
            i->note({sim::I2cEvent::Write, i->addr, false, i->data_out, acked, now});
            if (!acked) {
                i->err = I2C_MASTER_ERR_DATA_ACK;
            }
        }
        bits += 9;
    }
    if (stop && i->in_txn) {
        if (i->cur != nullptr) {
            i->cur->stop();
        }
        i->note({sim::I2cEvent::Stop, 0, false, 0, true, now});
        i->in_txn = false;
        i->cur = nullptr;
    }
    i->busy_until = now + (bits + 1) * i->bit_cycles;
}

// Each poll while the controller works lets the clock run to the end of the
// step (as the spinning processor would) and reports busy once.
bool I2CMasterBusy(uint32_t base) {
    sim::I2cBus *i = bus(base);
    if (i == nullptr) {
        return false;
    }
    sim::Board &b = board();
    if (b.now() < i->busy_until) {
        b.advance_to(i->busy_until);
        return true;
    }
    return false;
}

bool I2CMasterBusBusy(uint32_t base) {
    sim::I2cBus *i = bus(base);
    return i != nullptr && i->in_txn;
}

uint32_t I2CMasterErr(uint32_t base) {
    sim::I2cBus *i = bus(base);
    return i != nullptr ? i->err : 0;
}
