// The exports of the test calddlld.dll; see driver_door.h.
#include "driver_door.h"

static const DriverTable* installed;

void driver_door_install(const DriverTable* table) {
    installed = table;
}

extern "C" {

uint32_t _dorn_api_ver_compiled;
uint32_t _dorn_api_ver_bld_comp;
uint32_t _dorn_api_ver_auto_comp;
uint32_t _dorn_pkt_version_exp;

#define X(result, name, parameters, arguments) \
    result name parameters {                   \
        return installed->name arguments;      \
    }
DRIVER_FUNCTIONS(X)
#undef X
}
