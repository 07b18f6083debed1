#include "board_log.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

uint64_t missed_ticks(const std::string& log_file) {
    std::ifstream stream(log_file, std::ios::binary);
    const std::string log{std::istreambuf_iterator<char>(stream), {}};
    const size_t end = log.rfind(" ticks of 20 ms missed");
    if (end == std::string::npos) return 0;
    return std::strtoull(log.c_str() + log.rfind(' ', end - 1), nullptr, 10);
}
