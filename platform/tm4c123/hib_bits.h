// Bit positions of the hibernation module's control register and the
// interrupt sources of this part, shared by the chip's back end and the
// emulator's stand-in so both report wake causes alike.
#pragma once
#include <stdint.h>

#include "hibernate.h"

namespace hib_bits {

constexpr uint32_t CTL_RTCEN = 1u << 0;
constexpr uint32_t CTL_HIBREQ = 1u << 1;
constexpr uint32_t CTL_RTCWEN = 1u << 3;
constexpr uint32_t CTL_PINWEN = 1u << 4;
constexpr uint32_t CTL_CLK32EN = 1u << 6;
constexpr uint32_t CTL_VDD3ON = 1u << 8;
constexpr uint32_t CTL_BATWKEN = 1u << 9;
constexpr uint32_t CTL_OSCBYP = 1u << 16;
constexpr uint32_t CTL_OSCDRV = 1u << 17;
constexpr uint32_t CTL_WRC = 1u << 31;

constexpr uint32_t CTL_WAKE_BITS = CTL_PINWEN | CTL_RTCWEN | CTL_BATWKEN;
// Interrupt sources of this part: RTC match 0, low battery, wake pin, write complete.
constexpr uint32_t INT_BITS = HIBERNATE_INT_RTC_MATCH_0 | HIBERNATE_INT_LOW_BAT |
                              HIBERNATE_INT_PIN_WAKE | HIBERNATE_INT_WR_COMPLETE;

} // namespace hib_bits
