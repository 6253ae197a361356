#pragma once
/// @file
/// Collects measurements, pairs each with its other side, prints a table and writes the JSON list.

#include <benchmark/benchmark.h>
#include <map>
#include <string>
#include <vector>

namespace bench {

/// One line of the result.
struct Row {
    std::string name;
    double value = 0;
    std::string unit;
    double ratio = 0;     ///< own speed / speed of the other side; 0 when there is nothing to compare with
    std::string against;  ///< name of the other side
};

/// What a benchmark is compared with. The other side is registered as "NAME/AGAINST" and runs interleaved with it.
struct Pairing {
    std::string name;
    std::string against;
    std::string unit;  ///< of `value`: items per second in this unit, for instance "Mpixel/s"
    double items = 0;  ///< items of one iteration, in that unit
};

/// Takes the median over the repetitions of each benchmark.
class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Median seconds of one iteration, or 0 when it did not run.
    double MedianSeconds(const std::string& name) const;
    /// False when a benchmark reported an error; its text is on standard error.
    bool AllFine() const { return _allFine; }

private:
    std::map<std::string, std::vector<double>> _seconds;
    bool _allFine = true;
};

std::vector<Row> Compare(const Collector& collector, const std::vector<Pairing>& pairings);
void Print(const std::vector<Row>& rows);
bool WriteJson(const std::vector<Row>& rows, const std::string& path);

}  // namespace bench
