// main.cpp - runs the benchmarks and prints a table of ratios, ours beside the peers'
//
// Each side is run several times and the medians are divided, in one process,
// so that the machine's speed cancels out. The table is also written as JSON.
// Exit status 1 when a required ratio is missed.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ratio.h"

namespace ku::bench
{

const ratio *ratio::first = nullptr;

ratio::ratio(const char *work, const char *our_name, const char *peer_name, double required,
             double wanted)
    : what(work), ours(our_name), peer(peer_name), least(required), aim(wanted), next(first)
{
    first = this;
}

namespace
{

// Keeps the median time of each benchmark beside the ordinary output.
class medians : public benchmark::ConsoleReporter
{
public:
    std::map<std::string, double> times; // nanoseconds of CPU

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (!median && runs.size() > 1) continue;
            times[run.run_name.function_name] =
                run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

std::vector<const ratio *> rows()
{
    std::vector<const ratio *> all;
    for (const ratio *row = ratio::first; row != nullptr; row = row->next)
        all.insert(all.begin(), row);
    return all;
}

// Prints the table and writes it as JSON; the number of rows that miss what is required.
int report(const std::map<std::string, double> &times, const char *file)
{
    std::ofstream json(file);
    json << "[\n";
    int missed = 0;
    const char *separator = "";
    std::printf("\n%-58s %12s %12s %7s %6s %6s\n", "what", "ours, us", "peer, us", "ratio", "least",
                "aim");
    for (const ratio *row : rows()) {
        const auto ours = times.find(row->ours);
        const auto peer = times.find(row->peer);
        if (ours == times.end() || peer == times.end()) continue;
        const double value = peer->second / ours->second;
        const bool below = value < row->least;
        missed += below ? 1 : 0;
        std::printf("%-58s %12.2f %12.2f %7.2f %6.2f %6.2f%s\n", row->what, ours->second / 1e3,
                    peer->second / 1e3, value, row->least, row->aim, below ? "  MISSED" : "");
        json << separator << "  {\"what\": \"" << row->what << "\", \"ours_ns\": " << ours->second
             << ", \"peer_ns\": " << peer->second << ", \"ratio\": " << value
             << ", \"least\": " << row->least << ", \"aim\": " << row->aim << "}";
        separator = ",\n";
    }
    json << "\n]\n";
    std::printf("\nratio = peer's time / our time, medians of CPU time; also in %s\n", file);
    return missed;
}

} // namespace
} // namespace ku::bench

int main(int argc, char **argv)
{
    std::vector<char *> arguments(argv, argv + argc);
    char repetitions[] = "--benchmark_repetitions=5";
    char interleaved[] = "--benchmark_enable_random_interleaving=true";
    char brief[] = "--benchmark_display_aggregates_only=true";
    char least_time[] = "--benchmark_min_time=0.1";
    for (char *option : {repetitions, interleaved, brief, least_time})
        arguments.insert(arguments.begin() + 1, option);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

    ku::bench::medians reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const char *file = std::getenv("KU_BENCH_JSON");
    return ku::bench::report(reporter.times, file != nullptr ? file : "bench.json") == 0 ? 0 : 1;
}
