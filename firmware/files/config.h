// The data file's header texts and the output-column switches: the metadata
// block, the enabled-field list, the column-title line, the host's key=value
// list, the output presets and the operator's toggle menu. Each printer sends
// to the console (printFlg 1) and/or appends to the data file (writeFlg 1;
// any other value is off, and so is writing while the card is switched off).
// The sample line itself is measure/sample's; the card primitives are
// files/microsd's.
#pragma once
#include <stdint.h>
#include "core/system.h"

// TRUE when a file step failed (open, seek, a date line or close).
BOOL print_write_metadata_header(uint32_t ignored, int printFlg, int writeFlg);
BOOL print_write_data_header(int printFlg, int writeFlg);
void print_write_config_data_fields(int printFlg, int writeFlg, int padFlg);

void print_metadata_header(uint32_t now); // console only ("gm")
BOOL write_metadata_header(void);         // file only
void print_all_metadata(void);            // console only
BOOL print_data_header(void);             // console only
BOOL write_data_header(void);             // file only
void get_header(void);                    // console only ("gh")
void print_config_data_fields(void);      // console, "// " before each line

void print_config(void);
void config_data_fields(void);

// Presets: printFlg 1 prints what changed. None prints nothing. None of them
// stores the record.
void config_data_fields_glider(int printFlg);
void config_data_fields_wirewalker(int printFlg);
void config_data_fields_vexa(int printFlg);
void config_data_fields_quorl(int printFlg);
void config_data_fields_m2m_quorl(int printFlg);
void config_data_fields_nanofet(int printFlg);
void config_data_fields_all(int printFlg);
void config_data_fields_none(int printFlg);

// Keeps at most 31 characters of the calibration file's name.
void set_cal_filename(const char *filename);
