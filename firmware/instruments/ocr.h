// OCR-504 radiometer on the instrument port (UART3): one frame per sample.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int ocr_stateMachine(int state);
