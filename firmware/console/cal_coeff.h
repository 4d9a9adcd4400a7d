// Calibration coefficients: entry, import and export.
#pragma once

void get_pH_sensor_cal_coeff(void);
void export_pH_sensor_cal_coeff(void);
