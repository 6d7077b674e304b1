// A console reporter that keeps each benchmark's time per iteration, so that a
// program can print its figures as ratios to baselines measured in the same run.
//
// Goal rows: `printGoal` prints one line "GOAL|operation|peer|ratio|limit" for
// ./bench.sh, which gathers the rows of every program into one table; `printNote`
// prints "NOTE|text" for the table's notes (memory per class, per entry, ...).
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
public:
    // No colours: a colour code left open before a goal row would hide it from bench.sh.
    RatioReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (!run.error_occurred) times[run.benchmark_name()] = run.GetAdjustedRealTime();
    }

    // Prints measured / baseline when both ran and the baseline took time.
    void printRatio(const std::string& measured, const std::string& baseline) {
        if (!times.count(measured) || !times.count(baseline) || times[baseline] <= 0) return;
        std::printf("  %-40s / %-32s %10.1f x\n", measured.c_str(), baseline.c_str(),
                    times[measured] / times[baseline]);
    }

    // Prints a goal row: the ratio measured / baseline against its limit. A pair that
    // did not run (filtered out, or failed) prints nothing.
    void printGoal(const std::string& operation, const std::string& peer,
                   const std::string& measured, const std::string& baseline, double limit) {
        if (!times.count(measured) || !times.count(baseline) || times[baseline] <= 0) return;
        std::printf("GOAL|%s|%s|%.2f|%.2f\n", operation.c_str(), peer.c_str(),
                    times[measured] / times[baseline], limit);
    }

    // Keeps the mean time of `name`/0 to `name`/(count - 1) as `name`/mean, and gives
    // that name; a missing run leaves the mean out, so a goal row on it prints nothing.
    std::string mean(const std::string& name, int count) {
        double sum = 0;
        for (int i = 0; i < count; ++i) {
            auto run = times.find(name + "/" + std::to_string(i));
            if (run == times.end()) return name + "/mean";
            sum += run->second;
        }
        times[name + "/mean"] = sum / count;
        return name + "/mean";
    }

    static void printNote(const std::string& text) { std::printf("NOTE|%s\n", text.c_str()); }

    std::map<std::string, double> times;
};
