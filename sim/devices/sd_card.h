// A microSD card in SPI mode, byte by byte as the host clocks it: CMD0/8/9/
// 12/16/17/18/24/25/55/58, ACMD23/41, single and multi-block data, busy
// times. Its sectors are an image file (the simulated board's card) or, with
// none, a map over a fixed pattern (the disk layer's own tests). Knobs make it
// misbehave; the log keeps every command it saw. It knows nothing of the
// board: whoever owns the bus passes each byte and the chip select in.
#pragma once
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace sim {

struct SdCard {
    // What kind of card, and how it misbehaves.
    bool present = true;
    bool answers = true;      // false: never drives its output (no card behind the socket)
    bool v2 = true;           // answers CMD8
    bool highCapacity = true; // block addressed (CCS)
    int busyPolls = 3;        // ACMD41 answers idle this many times
    int accessBytes = 3;      // 0xFF bytes before a read's data token
    int writeBusyBytes = 4;   // busy bytes after each written block
    bool busyForever = false; // never finishes programming a block
    uint8_t readToken = 0xFE; // anything else is an error token
    uint8_t dataResponse = 0x05;
    uint8_t echoFlip = 0;         // bits flipped in CMD8's echo of the check pattern
    std::vector<uint8_t> illegal; // commands answered "illegal command"
    std::vector<uint8_t> csd;
    int imageFd = -1; // sectors live here when >= 0 (see openImage)

    // What the card saw.
    std::vector<std::string> log;
    bool logging = true;
    std::map<uint32_t, std::vector<uint8_t>> sectors; // written, without an image
    int wakeBytes = 0; // bytes clocked with CS high before the first command

    // Protocol state.
    bool idle = true, appNext = false, streaming = false;
    uint32_t streamSector = 0;
    int opCondPolls = 0;
    std::vector<uint8_t> cmd;
    std::deque<uint8_t> out;
    enum { kCommand, kWriteToken, kWriteData } rx = kCommand;
    bool multiWrite = false;
    uint32_t writeSector = 0;
    std::vector<uint8_t> block;
    int busy = 0;

    // One byte each way; `selected` is the chip select (active low) asserted.
    uint8_t exchange(uint8_t in, bool selected);
    std::vector<uint8_t> sector(uint32_t s);
    // An SDHC card whose sectors are the file's (read and written in place);
    // false with a message when the file cannot be used.
    bool openImage(const std::string &path, std::string &err);

    // CSD version 2 with C_SIZE; version 1 with C_SIZE, C_SIZE_MULT, READ_BL_LEN.
    static std::vector<uint8_t> csdV2(uint32_t cSize);
    static std::vector<uint8_t> csdV1(uint32_t cSize, uint32_t mult, uint32_t readBlLen);

  private:
    void command();
    void queueBlock(const std::vector<uint8_t> &data);
    void store(uint32_t s, std::vector<uint8_t> data);
    bool addressToSector(uint32_t arg, uint32_t *s) const;
};

} // namespace sim
