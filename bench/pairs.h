// Small figures, each measured side by side with its floor by Google Benchmark: many short runs of all of them in
// random order, of which the median counts, so that the machine's moods hit a figure and its floor alike.
#pragma once

#include <benchmark/benchmark.h>

#include "bench_board.h"
#include "results.h"

struct Pair {
    std::string name;
    std::optional<double> goal = std::nullopt;  // times the floor
    std::string note = "";
};

// The pairs to be run next, by name.
void remember_pair(const Pair& pair);

template <class Body>
void add_run(const std::string& name, const Body& body) {
    benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State& state) {
        for (auto _ : state) body();
    })->UseRealTime();
}

// Figure and floor are what is measured once; their time is the one on the wall.
template <class Figure, class Floor>
void add_pair(const Pair& pair, const Figure& figure, const Floor& floor) {
    remember_pair(pair);
    add_run(pair.name + "/figure", figure);
    add_run(pair.name + "/floor", floor);
}

// Runs the pairs that have been added, writes a row for each and forgets them. `words` are options for Google
// Benchmark.
void run_pairs(const Results& results, const std::vector<std::string>& words);

template <class Body>
double nanoseconds_of(const Body& body) {
    const int64_t before = ticks_now();
    body();
    return nanoseconds(ticks_now() - before);
}

// Measures a pair in turn and writes its row. For what takes some microseconds at least.
template <class Figure, class Floor>
void measure_in_turn(const Results& results, const Pair& pair, const Figure& figure, const Floor& floor) {
    constexpr int SAMPLES = 5001;
    std::vector<double> figures;
    std::vector<double> floors;
    for (int sample = 0; sample < SAMPLES; ++sample) {
        figures.push_back(nanoseconds_of(figure));
        floors.push_back(nanoseconds_of(floor));
    }
    results.add({pair.name, "ns", median(figures), median(floors), pair.goal, pair.note});
}
