// A folder of its own for a test, gone with everything in it when the test ends.
#pragma once

#include <string>
#include <vector>

struct TemporaryFolder {
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The full path of a file in it.
    std::string file(const std::string& name) const { return path + "\\" + name; }
    // The full paths of the files in it, in the order of their names.
    std::vector<std::string> files() const;

    std::string path;
};

// Deletes the folder and everything in it.
void remove_tree(const std::string& path);

void write_text(const std::string& path, const std::string& text);
// Empty when there is no such file.
std::string read_text(const std::string& path);
