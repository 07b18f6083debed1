// Functions put in the place of those that the test program itself imports or looks up by name.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "harness/import_table.h"
#include "tapi_providers.h"

// TAPI's list of providers, which Wine has not.
struct TapiList {
    LONG error = 0;
    std::vector<TapiProvider> providers;
    int asked = 0;  // how many times
};

// Puts everything back at its end. One at a time.
struct Replaced {
    Replaced();
    ~Replaced();
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

    // What GetProcAddress finds under this name, from whichever DLL; null = nothing.
    void found(const std::string& name, void* function);
    // What this program calls under this name.
    void imported(const std::string& name, void* function);

    TapiList tapi;

  private:
    harness::Replacements imports_;
};
