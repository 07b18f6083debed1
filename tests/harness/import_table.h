// The import and export tables of a loaded module: reading them, and replacing what the module imports.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace harness {

struct Import {
    std::string module;  // in lower case
    std::string name;    // of the function, or "#ordinal"
    void** slot;         // where the module looks the address up
};

std::vector<Import> imports_of(HMODULE module);
// The names in the export table, in its order.
std::vector<std::string> exports_of(HMODULE module);

// Replacements in one module's import table, put back at the end.
class Replacements {
  public:
    explicit Replacements(HMODULE module);
    ~Replacements();
    Replacements(const Replacements&) = delete;
    Replacements& operator=(const Replacements&) = delete;

    // Replaces the function of this name, from whichever DLL it comes; false when the module does not import it.
    bool replace(const std::string& name, void* replacement);
    // The same; what stood in the table is kept for the replacement to call.
    template <class Function>
    bool replace(const std::string& name, Function& kept, Function replacement) {
        kept = reinterpret_cast<Function>(original(name));
        return replace(name, reinterpret_cast<void*>(replacement));
    }
    // What stood in the table for that function, null when the module does not import it.
    void* original(const std::string& name) const;
    void restore();

  private:
    struct Saved {
        std::string name;
        void** slot;
        void* original;
    };
    std::vector<Import> imports_;
    std::vector<Saved> saved_;
};

}  // namespace harness
