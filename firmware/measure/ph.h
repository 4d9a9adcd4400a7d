// Temperature and pH from the sensor voltages, and the one-point bath
// calibration. Single-precision values, double-precision constants: the
// roundings at each assignment are part of the result.
#pragma once

float DuraFET_temp(float V_therm, float TCOffset);
float calc_pHint(float Eint, float TC);
float calc_pHext(float Eext, float TC, float salt);
void ph_calib(void);
