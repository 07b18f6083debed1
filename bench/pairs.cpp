#include "pairs.h"

#include <map>

namespace {

std::vector<Pair> gPairs;

// Keeps the median of every run, in nanoseconds.
class Medians : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.aggregate_name == "median") of[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
    std::map<std::string, double> of;
};

void initialise(const std::vector<std::string>& words) {
    std::vector<std::string> arguments = {"bench", "--benchmark_repetitions=51", "--benchmark_min_time=0.01",
                                          "--benchmark_enable_random_interleaving=true"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    std::vector<char*> pointers;
    pointers.reserve(arguments.size());
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (count > 1) give_up(std::string("what is ") + pointers[1] + "?");
}

}  // namespace

void remember_pair(const Pair& pair) {
    gPairs.push_back(pair);
}

void run_pairs(const Results& results, const std::vector<std::string>& words) {
    initialise(words);
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    benchmark::ClearRegisteredBenchmarks();
    for (const Pair& pair : gPairs)
        results.add({pair.name, "ns", medians.of.at(pair.name + "/figure"), medians.of.at(pair.name + "/floor"),
                     pair.goal, pair.note});
    gPairs.clear();
}
