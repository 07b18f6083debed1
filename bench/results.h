// What a benchmark program finds out: rows, appended as lines of JSON to the file that --out names. bench/table.py
// makes the table, the drawing and the verdict of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct Row {
    std::string name;
    std::string unit;  // of figure and floor
    double figure = 0;
    std::optional<double> floor = std::nullopt;  // what cannot be gone below, measured in the same run
    // The most that the figure may be: times the floor, or in its own unit when there is no floor. None: reported only.
    std::optional<double> goal = std::nullopt;
    std::string note = "";
};

// Ends the program with a message and status 2: a measurement that is not what it says is worth nothing.
[[noreturn]] void give_up(const std::string& why);

// The program's arguments; each value of an option is taken out once, empty when it is not there.
struct BenchArguments {
    BenchArguments();
    std::string take(const std::string& option);
    // A number of the option, or else the default.
    unsigned take_number(const std::string& option, unsigned otherwise);
    std::vector<std::string> words;
};

// Where the rows go. Without --out they are on standard output only.
class Results {
  public:
    // The group of all rows, as scripts/bench.sh takes it: query, trace, ...
    Results(BenchArguments& arguments, std::string group);
    void add(const Row& row) const;

  private:
    const std::string group_;
    const std::string file_;
};

// The value below which so large a part (0 to 1) of the samples lies.
double quantile(std::vector<double> samples, double part);
inline double median(std::vector<double> samples) {
    return quantile(std::move(samples), 0.5);
}
