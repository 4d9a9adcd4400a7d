// Synchronous serial (SPI) ports: SSI3 drives the ADC, SSI0 the card.
#pragma once
#include "hw_types.h"

#define SSI_FRF_MOTO_MODE_0 0x00000000u
#define SSI_FRF_MOTO_MODE_1 0x00000002u
#define SSI_MODE_MASTER 0x00000000u

void SSIConfigSetExpClk(uint32_t base, uint32_t clk, uint32_t protocol, uint32_t mode,
                        uint32_t bitRate, uint32_t dataWidth);
void SSIEnable(uint32_t base);
void SSIDisable(uint32_t base);
void SSIDataPut(uint32_t base, uint32_t data);                // blocks while the FIFO is full
int32_t SSIDataPutNonBlocking(uint32_t base, uint32_t data);  // 1 queued, 0 full
void SSIDataGet(uint32_t base, uint32_t *data);               // blocks until a word is there
int32_t SSIDataGetNonBlocking(uint32_t base, uint32_t *data); // 1 read, 0 empty
bool SSIBusy(uint32_t base);
