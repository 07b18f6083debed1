#pragma once

#define IDD_CHANNELS 100
#define IDD_STATIONS 101
#define IDC_LIST 200
#define IDC_SOURCE 201
