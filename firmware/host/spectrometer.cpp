// Spectrometer, lamp and nitrate computation on a board that has none of
// them: the operations the float-controller commands call, each giving the
// answer such a board gives. The wavelength calibration itself is the usual
// polynomial over the cell number, so a board with coefficients would share
// the arithmetic; there is no RAM table, the few look-ups compute it.
#include "host/spectrometer.h"

#include "host/apf_util.h"

int32_t Zcoefs = 0; // no coefficient file on this board
int32_t Ecoefs = 0;
double ZeissCoefs[ISUS_ZCOEF_COUNT];
double isusCalTemp = 0.0;
char isusCalDate[16];
int mmsDbgFlg = 0;

void mms_specPwrOff(void) {
    apf.isus_spec_pwr = 0;
}

void mms_lampPwrOff(void) {
    apf.isus_lamp_pwr = 0;
}

void IOPwrUp(void) {}

int32_t mms_takeIsusSample(float temp, float sal, float depth, char *rec, uint32_t ctdTime,
                           uint32_t txFlg) {
    if (rec != nullptr) {
        rec[0] = 0;
    }
    return -1; // no spectrometer answers
}

int32_t mms_bake(uint32_t seconds) {
    return -1; // no lamp to bake
}

// The coefficient file belongs to a fitted spectrometer; without one there
// is nothing to read.
int32_t LoadIsusZCoefs(double *coefs) {
    if (coefs != nullptr) {
        for (uint32_t i = 0; i < ISUS_ZCOEF_COUNT; i++) {
            coefs[i] = 0.0;
        }
    }
    return 0;
}

void InitLambdaArray(const double *coefs) {}

double CellNumToLambda(uint32_t pixel, const double *coefs) {
    if (coefs == nullptr) {
        return 0.0;
    }
    double p = (double)pixel;
    double lambda = 0.0;
    for (uint32_t i = ISUS_ZCOEF_COUNT; i-- > 0;) {
        lambda = lambda * p + coefs[i];
    }
    return lambda;
}

namespace {

uint32_t nearest_pixel(double lambda) {
    uint32_t best = 0;
    double bestDiff = -1.0;
    for (uint32_t p = 0; p < ISUS_PIXELS; p++) {
        double d = CellNumToLambda(p, ZeissCoefs) - lambda;
        if (d < 0.0) {
            d = -d;
        }
        if (bestDiff < 0.0 || d < bestDiff) {
            best = p;
            bestDiff = d;
        }
    }
    return best;
}

} // namespace

int32_t MatchPixelsToLambda(uint32_t lambdaBeg, uint32_t lambdaEnd, uint32_t *pixelBeg,
                            uint32_t *pixelEnd) {
    if (Zcoefs < 1 || pixelBeg == nullptr || pixelEnd == nullptr) {
        return -1;
    }
    *pixelBeg = nearest_pixel((double)lambdaBeg);
    *pixelEnd = nearest_pixel((double)lambdaEnd);
    return 0;
}

uint16_t fCrc16Bit(const uint8_t *data, uint32_t length) {
    uint16_t crc = 0xFFFF;
    for (uint32_t i = 0; i < length; i++) {
        crc ^= (uint16_t)(data[i] << 8);
        for (int bit = 0; bit < 8; bit++) {
            crc = (crc & 0x8000u) ? (uint16_t)((crc << 1) ^ 0x1021u) : (uint16_t)(crc << 1);
        }
    }
    return crc;
}
