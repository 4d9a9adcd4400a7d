// Data-file header: metadata block, enabled-field list, column titles, presets.
#pragma once
#include <stdint.h>
#include "core/system.h"

BOOL print_write_metadata_header(uint32_t ignored, int printFlg, int writeFlg);
BOOL print_write_data_header(int printFlg, int writeFlg);
void print_metadata_header(uint32_t now);
void get_header(void);
void print_config(void);
void config_data_fields_glider(int printFlg);
void config_data_fields_wirewalker(int printFlg);
void config_data_fields_vexa(int printFlg);
void config_data_fields_quorl(int printFlg);
void config_data_fields_m2m_quorl(int printFlg);
void config_data_fields_nanofet(int printFlg);
void config_data_fields_all(int printFlg);
void config_data_fields_none(int printFlg);
