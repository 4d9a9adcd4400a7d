// Temperature and pH from the sensor voltages, and the one-point bath
// calibration that runs the same chemistry backwards.
//
// Owns: DuraFET_temp, calc_pHint, calc_pHext (pure functions of their
// arguments and of sys_data) and the ph_calib dialogue. Does not own the ADC
// readings (ads1248_iso), the CTD drivers (instruments/) or the saving of the
// record (the menu's save step).
//
// Arithmetic: variables are single precision, constants and library calls
// double precision, so every assignment to a float rounds. Those roundings
// are part of the numbers the instrument has always reported: keep each
// (float) where it is, and call the library in double explicitly (in C++ the
// float overloads of sqrt/log/... would round where the instrument never did).
#include "measure/ph.h"

#include <math.h>
#include <stdint.h>
#include <stdio.h>

#include "board/board_util.h"
#include "board/uart4.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/ctd_base.h"
#include "measure/ads1248_iso.h"
#include "sysctl.h"

// ---- constants of the chemistry -------------------------------------------
#define KELVIN_OFFSET 273.15
#define GAS_CONSTANT_R 8.31451
#define FARADAY_F 96487.0
#define LN10_APPROX 2.302585           // the sample computations' ln 10
#define DEDT_INT (-0.0011012)          // internal reference, V per degC
#define DEDT_EXT (-0.0010482)          // external reference, V per degC
#define THERM_RSERIES 20000.0          // upper leg of the thermistor divider, ohm
#define THERM_VREF 3.3                 // divider supply, V
#define SO4_PER_S 0.001457392100934813 // 0.14 / 96.062
#define CL_PER_S 0.028175048655967053  // 0.99889 / 35.453
#define S_PER_CHLORINITY 1.80655

// ---- calibration dialogue --------------------------------------------------
#define CAL_INPUT_BUF_SIZE 32u
#define CAL_HIST_SLOTS 5 // readings averaged
#define CAL_HIST_MEAN 5  // cell of the mean
#define CAL_HIST_SSQ 6   // cell of the sum of squared deviations
#define CAL_HIST_CELLS 7
#define CAL_QTY 5            // Vrsi, Vrse, Vtherm, bath temperature, bath salinity
#define CAL_HEADER_EVERY 20u // rows between headers
#define CAL_CTRL_X 0x18

// ln(T_K) in double, as every term of the bisulfate constant uses it.
static inline double ln_d(float x) {
    return log((double)x);
}

float DuraFET_temp(float V_therm, float TCOffset) {
    // The thermistor is the lower leg of a divider fed from 3.3 V.
    double Rtherm = THERM_RSERIES / ((THERM_VREF / (double)V_therm) - 1.0);
    float TC = 0.0f;

    switch (sys_data.app_cfg[APPCFG_TEMPC_SH_ALG]) {
    case 0: {
        double lg = log10(Rtherm);
        TC = (float)(sys_data.quadTherm_c0 + sys_data.quadTherm_c1 * Rtherm +
                     sys_data.quadTherm_c2 * lg + sys_data.quadTherm_c3 * pow(lg, 3.0));
        break;
    }
    case 1: {
        // Steinhart-Hart form on the same coefficients (c0, c2, c3 as A, B,
        // C) and no kelvin conversion: the stored sets were fitted that way.
        double ln = log(Rtherm);
        TC = (float)(1.0 / (sys_data.quadTherm_c0 + sys_data.quadTherm_c2 * ln +
                            sys_data.quadTherm_c3 * pow(ln, 3.0)));
        break;
    }
    default:
        TC = 0.0f;
        break;
    }
    return TC + TCOffset;
}

float calc_pHint(float Eint, float TC) {
    float T_K = (float)((double)TC + KELVIN_OFFSET);
    float S_T = (float)((double)T_K * GAS_CONSTANT_R / FARADAY_F * LN10_APPROX);
    float d = (float)((double)TC - 25.0);
    float Eoint = (float)((double)sys_data.k0int + (double)d * DEDT_INT);
    return (Eint - Eoint) / S_T;
}

float calc_pHext(float Eext, float TC, float salt) {
    float T_K = (float)((double)TC + KELVIN_OFFSET);
    float S_T = (float)((double)T_K * GAS_CONSTANT_R / FARADAY_F * LN10_APPROX);
    float Eoext = (float)((double)sys_data.k0ext + (double)(TC - 25.0f) * DEDT_EXT);

    // Seawater: ionic strength, total sulfate, total chloride.
    float Z = (float)(((double)salt * 19.924) / (1000.0 - (double)salt * 1.005));
    float SO4_tot = (float)(((double)salt / S_PER_CHLORINITY) * SO4_PER_S);
    float mCl = (float)(((double)salt * CL_PER_S) / S_PER_CHLORINITY);

    double sqZ = sqrt((double)Z);
    double lnT = ln_d(T_K);
    float K_HSO4 = (float)exp(-4276.1 / (double)T_K + 141.328 - 23.093 * lnT +
                              ((double)(-13856.0f / T_K) + 324.57 - 47.986 * lnT) * sqZ +
                              ((double)(35474.0f / T_K) - 771.54 + 114.723 * lnT) * (double)Z -
                              (double)(2698.0f / T_K) * pow(sqZ, 3.0) +
                              (double)(1776.0f / T_K) * pow((double)Z, 2.0) +
                              log(1.0 - 0.001005 * (double)salt));

    float DHconst = (float)(pow((double)TC, 2.0) * 3.43e-06 + (double)TC * 0.00067524 + 0.49172143);
    float log10gamma_HCl = (float)(2.0 * ((double)(-DHconst) * sqZ / (1.0 + 1.394 * sqZ) +
                                          (0.08885 - 0.000111 * (double)TC) * (double)Z));

    float pHext_free = (float)(-((double)(Eoext - Eext) -
                                 (double)S_T * (log10((double)mCl) + (double)log10gamma_HCl)) /
                               (double)S_T);

    // Free scale to total scale; the ratio and the 1 + are single precision.
    float ratio = 1.0f + SO4_tot / K_HSO4;
    return (float)((double)pHext_free - log10((double)ratio));
}

// ---- ph_calib ----------------------------------------------------------------

// Entries kept between calls during one power-up; they are the defaults shown
// in brackets.
static float s_pHcalpt = 0.0f;
static float s_Vint = 0.0f;
static float s_Vext = 0.0f;
static float s_tempC = 0.0f;
static float s_salt = 0.0f;

// One number typed by the operator. 1: a number was read into *value; 0: an
// empty line; -1: something that is not a number.
static int read_number(float *value) {
    char buf[CAL_INPUT_BUF_SIZE];
    if (getUserInput(buf, sizeof(buf)) < 1) {
        return 0;
    }
    float v;
    if (sscanf(buf, "%f", &v) != 1) {
        return -1;
    }
    *value = v;
    return 1;
}

static bool in_range(float v, float lo, float hi) {
    return v >= lo && v <= hi; // NaN is never in range
}

// Manual entry of one value: out-of-range answers ask again, an empty or
// unreadable one keeps the value shown.
static void enter_value(const char *prompt, float *value, float lo, float hi,
                        const char *rangeMsg) {
    for (;;) {
        uprintf(prompt, (double)*value);
        float v;
        if (read_number(&v) != 1) {
            return;
        }
        if (in_range(v, lo, hi)) {
            *value = v;
            return;
        }
        uprintf("%s", rangeMsg);
    }
}

// One CTD sample for the bath: the driver chosen by the CTD type, stepped to
// its end. CTRL-X at the console gives it up (bath temperature and salinity
// read as 0).
static void calib_ctd_sample(void) {
    int state = 1;
    while (state != 0) {
        state = uart4_stateMachine(state);
        if (state == 0) {
            break;
        }
        if (UARTRxBytesAvail() > 0 && UARTPeek(CAL_CTRL_X) >= 0) {
            UARTFlushRx();
            ctd.tempC = 0.0f;
            ctd.salt = 0.0f;
            ctd_close();
            break;
        }
        SysCtlSleep();
    }
}

typedef float calHistory[CAL_QTY][CAL_HIST_CELLS];

// Mean of the five value cells and their sum of squared deviations; the
// spread shown is the root of that sum, not divided by the count.
static void calib_history_stats(calHistory h) {
    for (int q = 0; q < CAL_QTY; q++) {
        float sum = 0.0f;
        for (int k = 0; k < CAL_HIST_SLOTS; k++) {
            sum += h[q][k];
        }
        float mean = (float)((double)sum / 5.0);
        h[q][CAL_HIST_MEAN] = mean;
        float ssq = 0.0f;
        for (int k = 0; k < CAL_HIST_SLOTS; k++) {
            float dv = h[q][k] - mean;
            ssq += dv * dv;
        }
        h[q][CAL_HIST_SSQ] = ssq;
    }
}

static double calib_sd(const calHistory h, int q) {
    return sqrt((double)h[q][CAL_HIST_SSQ]);
}

// Automatic path: sensor and CTD in the bath, rows of running means until the
// operator is satisfied. Leaves the means in the retained entries and in
// *Vtherm.
static void calib_automatic(float *Vtherm) {
    calHistory h;
    uint32_t wpos = 0;
    uint32_t rows = 0;

    openADS1248_iso();
    delay_msec(1000);
    uprintf("Place DuraFET and MicroCAT in calibration bath.");
    prn_nl();
    uprintf("Hit any key when values have stabilized...");
    prn_nl();
    UARTFlushRx();

    for (int q = 0; q < CAL_QTY; q++) {
        for (int k = 0; k < CAL_HIST_CELLS; k++) {
            h[q][k] = 0.0f;
        }
    }

    for (;;) {
        do {
            float vi = pollADS1248_iso(1, 6, (int)sys_data.Vrsi_trials, 1, 5);
            float ve = pollADS1248_iso(4, 6, (int)sys_data.Vrse_trials, 1, 5);
            float vt = pollADS1248_iso(0, 6, (int)sys_data.Vtherm_trials, 1, 5);
            // Shown by nothing and used by nothing: the bath temperature is
            // the CTD's.
            (void)DuraFET_temp(vt, sys_data.TCOffset);

            calib_ctd_sample();

            // The write position steps before each write and also lands on
            // the mean cell, so one reading in six is dropped.
            wpos = (wpos >= 5u) ? 0u : wpos + 1u;
            h[0][wpos] = vi;
            h[1][wpos] = ve;
            h[2][wpos] = vt;
            h[3][wpos] = ctd.tempC;
            h[4][wpos] = ctd.salt;
            calib_history_stats(h);

            if (rows % CAL_HEADER_EVERY == 0u) {
                prn_nl();
                prn_nl();
                uprintf("    Vrsi\t Vrsi-SD\t    Vrse\t Vrse-SD\t  Vtherm\tVthermSD\t   "
                        "TempC\tTempC-SD\tSalinity\tSal-SD");
            }
            rows++;
            prn_nl();
            uprintf("%8.5f\t%8.5f\t%8.5f\t%8.5f\t%8.5f\t%8.5f\t%8.5f\t%8.5f\t%8.5f\t%8.5f",
                    (double)h[0][CAL_HIST_MEAN], calib_sd(h, 0), (double)h[1][CAL_HIST_MEAN],
                    calib_sd(h, 1), (double)h[2][CAL_HIST_MEAN], calib_sd(h, 2),
                    (double)h[3][CAL_HIST_MEAN], calib_sd(h, 3), (double)h[4][CAL_HIST_MEAN],
                    calib_sd(h, 4));
        } while (!kbhit());

        prn_nl();
        prn_nl();
        uprintf("Average of last %d values", CAL_HIST_SLOTS);
        prn_nl();
        uprintf("Vint = %f V  SD = %f", (double)h[0][CAL_HIST_MEAN], calib_sd(h, 0));
        uprintf("\r\nVext = %f V  SD = %f", (double)h[1][CAL_HIST_MEAN], calib_sd(h, 1));
        uprintf("\r\nVtherm = %f C  SD = %f", (double)h[2][CAL_HIST_MEAN], calib_sd(h, 2));
        uprintf("\r\nMicroCAT Temperature = %f C  SD = %f", (double)h[3][CAL_HIST_MEAN],
                calib_sd(h, 3));
        uprintf("\r\nMicroCAT Salinity = %f  SD = %f", (double)h[4][CAL_HIST_MEAN], calib_sd(h, 4));
        prn_nl();
        prn_nl();
        s_Vint = h[0][CAL_HIST_MEAN];
        s_Vext = h[1][CAL_HIST_MEAN];
        *Vtherm = h[2][CAL_HIST_MEAN];
        s_tempC = h[3][CAL_HIST_MEAN];
        s_salt = h[4][CAL_HIST_MEAN];

        if (yesOrNoMenuChoice("Values acceptable (Y/N) [N]? ", 0)) {
            break;
        }
    }
    closeADS1248_iso();
    ctd_close();
}

void ph_calib(void) {
    // The banner is a leftover of an older release; the routine works.
    uprintf("\r\nph_calib() not supported in this version\r\n");

    for (;;) {
        uprintf("\r\n\r\nEnter pH calibration point [%.3f]: ", (double)s_pHcalpt);
        float v;
        int r = read_number(&v);
        if (r == 0) {
            uprintf("DEBUG: getUserInput fails to return 1");
            prn_nl();
            break;
        }
        if (r < 0) {
            uprintf("DEBUG: sscanf fails to return 1");
            prn_nl();
            break;
        }
        if (!in_range(v, 0.0f, 14.0f)) {
            uprintf("\r\nEnter between 0 and 14");
            continue;
        }
        s_pHcalpt = v;
        uprintf("pH cal pt = %.3f\r\n", (double)s_pHcalpt);
        break;
    }

    // No thermistor voltage on the manual path: the thermistor offset is then
    // left as it is.
    bool haveVtherm = false;
    float Vtherm = 0.0f;
    if (yesOrNoMenuChoice("Perform automatic DuraFET calibration (Y/N) [N]? ", 0)) {
        calib_automatic(&Vtherm);
        haveVtherm = true;
    } else {
        enter_value("\r\n\r\nEnter Vrsi [%f]: ", &s_Vint, -2.0f, 2.0f,
                    "Enter number between -2 and 2\r\n\r\n");
        enter_value("\r\n\r\nEnter Vrse [%f]: ", &s_Vext, -2.0f, 2.0f,
                    "Enter number between -2 and 2\r\n\r\n");
        enter_value("\r\nEnter bath temperature [%f]: ", &s_tempC, 0.0f, 100.0f,
                    "\r\nEnter between 0 and 100");
        enter_value("\r\nEnter bath salinity [%f]: ", &s_salt, 0.0f, 100.0f,
                    "\r\nEnter between 0 and 100");
    }

    const float pHcal = s_pHcalpt;
    const float Vint = s_Vint;
    const float Vext = s_Vext;
    const float T = s_tempC;
    const float S = s_salt;

    float T_K = (float)((double)T + KELVIN_OFFSET);
    float S_T = (float)((double)T_K * GAS_CONSTANT_R / FARADAY_F * log(10.0));

    float k0int_new = (float)((double)(Vint - pHcal * S_T) + (25.0 - (double)T) * DEDT_INT);

    float Z = (float)(((double)S * 19.924) / (1000.0 - (double)S * 1.005));
    float SO4_tot = (float)(((double)S / S_PER_CHLORINITY) * SO4_PER_S);
    float mCl = (float)(((double)S * CL_PER_S) / S_PER_CHLORINITY);
    float sqrtZ = (float)sqrt((double)Z);

    // As in calc_pHext but for the Z^1.5 and Z^2 terms, which this routine
    // has always formed its own way.
    double lnT = ln_d(T_K);
    float K_HSO4 = (float)exp(-4276.1 / (double)T_K + 141.328 - 23.093 * lnT +
                              ((double)(-13856.0f / T_K) + 324.57 - 47.986 * lnT) * (double)sqrtZ +
                              ((double)(35474.0f / T_K) - 771.54 + 114.723 * lnT) * (double)Z -
                              (double)(2698.0f / T_K) * pow((double)Z, 1.5) +
                              (double)(Z * Z * (1776.0f / T_K)) + log(1.0 - 0.001005 * (double)S));

    // The calibration point is on the total scale; the cell sees free H+.
    float pH_free = (float)((double)pHcal + log10(1.0 + (double)SO4_tot / (double)K_HSO4));

    float DHconst = (float)((double)T * 3.43e-06 * (double)T + (double)T * 0.00067524 + 0.49172143);
    double g = (double)sqrtZ * (double)(-DHconst) / (1.0 + 1.394 * (double)sqrtZ) +
               (0.08885 - 0.000111 * (double)T) * (double)Z;
    float log10gamma_HCl = (float)(g + g);

    float aH = (float)pow(10.0, -(double)pH_free);
    float aHCl = (float)(((double)mCl * (double)aH) * pow(10.0, (double)log10gamma_HCl));

    float Eoext_T = (float)((double)Vext + (double)S_T * log10((double)aHCl));
    float k0ext_new = (float)((double)Eoext_T + (25.0 - (double)T) * DEDT_EXT);

    float TCOffset_new = sys_data.TCOffset;
    if (haveVtherm) {
        TCOffset_new = T - DuraFET_temp(Vtherm, 0.0f);
    }

    uprintf("\r\n\r\nEo Int @ 25C = %f", (double)k0int_new);
    uprintf("\r\nEo Ext @ 25C = %f", (double)k0ext_new);
    // Shows the offset in use, not the new one.
    uprintf("\r\nTCOffset = %f", (double)sys_data.TCOffset);
    prn_nl();
    prn_nl();

    if (yesOrNoMenuChoice("Accept and store calibration values(Y/N) [N]? ", 0)) {
        // RAM only: the menu's save step writes the record.
        sys_data.k0int = k0int_new;
        sys_data.k0ext = k0ext_new;
        sys_data.TCOffset = TCOffset_new;
        uprintf("\r\nCalibration values stored");
    }
}
