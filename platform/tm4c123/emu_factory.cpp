// The factory's first programming of an emulated board. The instrument leaves
// the bench with its default configuration record in EEPROM; an emulated
// board starts from zeroed RAM, so the first EEPROM access writes that record
// from the firmware's own defaults routine. The routine also resets some of
// the sampling state: both records are put back as they were.
#include "emu_factory.h"

#include <string.h>

#include "core/system.h"

void emu_factory_record(uint8_t *record, uint32_t size) {
    if (record == nullptr || size < sizeof(systemData)) {
        return;
    }
    static systemData savedData;
    static systemSamplingData savedSamp;
    savedData = sys_data;
    savedSamp = sys_samp;
    // The console already runs at the default rate: nothing to announce.
    sys_data.baud_rate = 115200u;
    init_sys_data_default();
    memcpy(record, &sys_data, sizeof(systemData));
    sys_data = savedData;
    sys_samp = savedSamp;
}
