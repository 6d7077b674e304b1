// A console reporter that keeps each benchmark's time per iteration, so that a
// program can print its figures as ratios to baselines measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
public:
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

    std::map<std::string, double> times;
};
