// A place for a benchmark's files.
#pragma once

#include <string>

// A folder of the benchmark's own, emptied before and after.
class BenchFolder {
  public:
    BenchFolder();
    ~BenchFolder();
    BenchFolder(const BenchFolder&) = delete;
    BenchFolder& operator=(const BenchFolder&) = delete;
    std::string file(const std::string& name) const { return path_ + "\\" + name; }

  private:
    void empty() const;

    std::string path_;
};
