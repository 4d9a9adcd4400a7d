// Data-file header printers (to come).
#include "files/config.h"
#include "console/user_io.h"

BOOL print_write_metadata_header(uint32_t, int, int) {
    not_built_yet("print_write_metadata_header");
    return FALSE;
}
BOOL print_write_data_header(int, int) {
    not_built_yet("print_write_data_header");
    return FALSE;
}
void print_metadata_header(uint32_t) {
    not_built_yet("print_metadata_header");
}
void get_header(void) {
    not_built_yet("get_header");
}
void print_config(void) {
    not_built_yet("print_config");
}
void config_data_fields_glider(int) {
    not_built_yet("config_data_fields_glider");
}
void config_data_fields_wirewalker(int) {
    not_built_yet("config_data_fields_wirewalker");
}
void config_data_fields_vexa(int) {
    not_built_yet("config_data_fields_vexa");
}
void config_data_fields_quorl(int) {
    not_built_yet("config_data_fields_quorl");
}
void config_data_fields_m2m_quorl(int) {
    not_built_yet("config_data_fields_m2m_quorl");
}
void config_data_fields_nanofet(int) {
    not_built_yet("config_data_fields_nanofet");
}
void config_data_fields_all(int) {
    not_built_yet("config_data_fields_all");
}
void config_data_fields_none(int) {
    not_built_yet("config_data_fields_none");
}
