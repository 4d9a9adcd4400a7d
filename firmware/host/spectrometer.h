// UV spectrometer, its lamp, and the nitrate computation (wavelength
// calibration, pixel ranges), plus the record check word of the
// float-controller records.
//
// This board carries no spectrometer, no lamp and no coefficient file. Every
// operation answers as such a board truthfully does: no coefficients are
// loaded (Zcoefs 0), the powers stay off, a nitrate sample or a lamp bake
// fails at once, and the wavelength of a pixel is what the (empty)
// calibration gives. Nothing here touches the serial port a spectrometer
// would use.
#pragma once
#include <stdint.h>

#define ISUS_PIXELS 256u     // detector cells of the spectrometer
#define ISUS_ZCOEF_COUNT 5u  // wavelength-calibration polynomial, lowest order first
#define ISUS_ECOEF_ROWS 256u // rows of a complete extinction-coefficient file

extern int32_t Zcoefs; // wavelength coefficients loaded; < 1: none
extern int32_t Ecoefs; // extinction-coefficient rows loaded; ISUS_ECOEF_ROWS: complete
extern double ZeissCoefs[ISUS_ZCOEF_COUNT];
extern double isusCalTemp;   // temperature of the coefficient file's calibration, degC
extern char isusCalDate[16]; // its date text
extern int mmsDbgFlg;        // 1: the spectrometer driver's debug prints

// Power switches of the spectrometer and the lamp (apf.isus_spec_pwr,
// apf.isus_lamp_pwr follow them).
void mms_specPwrOff(void);
void mms_lampPwrOff(void);
// Supplies of the serial instruments; nothing extra to switch on this board.
void IOPwrUp(void);

// One nitrate sample with the CTD values the host pushed; the record text goes
// to rec. Returns 0 on success. No spectrometer: always fails (-1).
int32_t mms_takeIsusSample(float temp, float sal, float depth, char *rec, uint32_t ctdTime,
                           uint32_t txFlg);
// Lamp bake for the given seconds. No lamp: returns -1 at once.
int32_t mms_bake(uint32_t seconds);

// Loads the wavelength coefficients; returns how many were loaded (0: none).
int32_t LoadIsusZCoefs(double *coefs);
// Prepares the pixel-to-wavelength conversion for the loaded coefficients.
void InitLambdaArray(const double *coefs);
// Wavelength (nm) of a detector cell: the calibration polynomial.
double CellNumToLambda(uint32_t pixel, const double *coefs);
// The detector cells nearest to two wavelengths (nm). Returns 0, or -1 with
// the cells unchanged when no coefficients are loaded.
int32_t MatchPixelsToLambda(uint32_t lambdaBeg, uint32_t lambdaEnd, uint32_t *pixelBeg,
                            uint32_t *pixelEnd);

// Check word of a float-controller record line: CRC-16/CCITT-FALSE
// (polynomial 0x1021, initial value 0xFFFF, no reflection, no final XOR;
// check value 0x29B1 for "123456789").
uint16_t fCrc16Bit(const uint8_t *data, uint32_t length);
