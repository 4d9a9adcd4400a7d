// Interrupt controller. IntMasterDisable/Enable return the previous mask state
// (true = interrupts were already disabled), as the vendor library does.
// Interrupt handlers are never nested: one context at a time.
#pragma once
#include "hw_types.h"

bool IntMasterEnable(void);
bool IntMasterDisable(void);
void IntEnable(uint32_t interrupt);
void IntDisable(uint32_t interrupt);
bool IntIsEnabled(uint32_t interrupt);
