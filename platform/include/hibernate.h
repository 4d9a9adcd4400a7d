// Hibernation module and its real-time clock (whole seconds).
// HibernateRequest removes power: on the chip it does not return unless
// hibernation fails; the next wake-up is a reset through main().
#pragma once
#include "hw_types.h"

#define HIBERNATE_INT_RTC_MATCH_0 0x00000001u
#define HIBERNATE_INT_LOW_BAT 0x00000004u
#define HIBERNATE_INT_PIN_WAKE 0x00000008u
#define HIBERNATE_INT_WR_COMPLETE 0x00000010u
#define HIBERNATE_INT_GPIO_WAKE 0x00000020u
#define HIBERNATE_INT_RESET_WAKE 0x00000040u
#define HIBERNATE_INT_VDDFAIL 0x00000080u

#define HIBERNATE_WAKE_PIN 0x00000010u
#define HIBERNATE_WAKE_RTC 0x00000008u

void HibernateEnableExpClk(uint32_t hibClock);
uint32_t HibernateIsActive(void);
uint32_t HibernateIntStatus(bool masked);
void HibernateIntClear(uint32_t intFlags);
void HibernateIntDisable(uint32_t intFlags);
void HibernateGPIORetentionDisable(void);
void HibernateClockConfig(uint32_t config);
void HibernateRTCTrimSet(uint32_t trim);
void HibernateRTCEnable(void);
uint32_t HibernateRTCGet(void);
void HibernateRTCSet(uint32_t seconds);
void HibernateRTCMatchSet(uint32_t match, uint32_t value);
uint32_t HibernateRTCMatchGet(uint32_t match);
void HibernateWakeSet(uint32_t wakeFlags);
uint32_t HibernateWakeGet(void);
void HibernateRequest(void);
