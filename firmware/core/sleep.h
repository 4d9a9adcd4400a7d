// Hibernation between samples, classification of the wake source, and the
// recovery when hibernation fails.
#pragma once
#include "core/system.h"

void sleep(deploy_state state, uint32_t wakeTime);
uint32_t wake_handler(void);
void print_sleep(void);
void sleep_debug(void);
