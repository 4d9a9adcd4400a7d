// UARTs: stubs until the register-level code lands. Nothing is ever received,
// every byte offered is taken (and dropped), the transmitter is never busy.
#include "uart.h"

void UARTConfigSetExpClk(uint32_t base, uint32_t uartClk, uint32_t baud, uint32_t config) {}
void UARTClockSourceSet(uint32_t base, uint32_t source) {}
void UARTFIFOLevelSet(uint32_t base, uint32_t txLevel, uint32_t rxLevel) {}
void UARTEnable(uint32_t base) {}
void UARTDisable(uint32_t base) {}
void UARTIntEnable(uint32_t base, uint32_t intFlags) {}
void UARTIntDisable(uint32_t base, uint32_t intFlags) {}
uint32_t UARTIntStatus(uint32_t base, bool masked) {
    return 0u;
}
void UARTIntClear(uint32_t base, uint32_t intFlags) {}
bool UARTCharsAvail(uint32_t base) {
    return false;
}
int32_t UARTCharGetNonBlocking(uint32_t base) {
    return -1;
}
bool UARTSpaceAvail(uint32_t base) {
    return true;
}
bool UARTCharPutNonBlocking(uint32_t base, unsigned char data) {
    return true;
}
bool UARTBusy(uint32_t base) {
    return false;
}
