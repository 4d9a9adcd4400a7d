// OCR-504 radiometer on the instrument port (UART3): one frame per sample (to come).
#include "instruments/ocr.h"
#include "console/user_io.h"

int ocr_stateMachine(int state) {
    (void)state;
    not_built_yet("ocr_stateMachine");
    return 0;
}
