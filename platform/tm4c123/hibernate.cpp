// Hibernation module and its real-time clock: stubs until the register-level
// code lands. The clock reads 0 and never moves; a hibernation request returns
// at once, which the firmware treats as hibernation having failed.
#include "hibernate.h"

void HibernateEnableExpClk(uint32_t hibClock) {}
uint32_t HibernateIsActive(void) {
    return 0u;
}
uint32_t HibernateIntStatus(bool masked) {
    return 0u;
}
void HibernateIntClear(uint32_t intFlags) {}
void HibernateIntDisable(uint32_t intFlags) {}
void HibernateGPIORetentionDisable(void) {}
void HibernateClockConfig(uint32_t config) {}
void HibernateRTCTrimSet(uint32_t trim) {}
void HibernateRTCEnable(void) {}
uint32_t HibernateRTCGet(void) {
    return 0u;
}
void HibernateRTCSet(uint32_t seconds) {}
void HibernateRTCMatchSet(uint32_t match, uint32_t value) {}
uint32_t HibernateRTCMatchGet(uint32_t match) {
    return 0u;
}
void HibernateWakeSet(uint32_t wakeFlags) {}
uint32_t HibernateWakeGet(void) {
    return 0u;
}
void HibernateRequest(void) {}
