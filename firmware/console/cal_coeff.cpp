// Calibration coefficients (to come).
#include "console/cal_coeff.h"
#include "console/user_io.h"

void get_pH_sensor_cal_coeff(void) {
    not_built_yet("get_pH_sensor_cal_coeff");
}
void export_pH_sensor_cal_coeff(void) {
    not_built_yet("export_pH_sensor_cal_coeff");
}
