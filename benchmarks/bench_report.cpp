#include "bench_report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace bench {
namespace {

double Median(std::vector<double> values) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace

bool Collector::ReportContext(const Context&) { return true; }

void Collector::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.error_occurred) {
            std::fprintf(stderr, "%s: %s\n", run.run_name.function_name.c_str(), run.error_message.c_str());
            _allFine = false;
        } else if (run.run_type == Run::RT_Iteration) {
            // Processor time: wall time includes other programs.
            _seconds[run.run_name.function_name].push_back(run.cpu_accumulated_time /
                                                           static_cast<double>(run.iterations));
        }
    }
}

double Collector::MedianSeconds(const std::string& name) const {
    const auto found = _seconds.find(name);
    return found == _seconds.end() ? 0 : Median(found->second);
}

std::vector<Row> Compare(const Collector& collector, const std::vector<Pairing>& pairings) {
    std::vector<Row> rows;
    for (const Pairing& pairing : pairings) {
        const double own = collector.MedianSeconds(pairing.name);
        const double other = collector.MedianSeconds(pairing.name + "/" + pairing.against);
        if (own > 0)
            rows.push_back({pairing.name, pairing.items / own, pairing.unit, other / own, pairing.against});
    }
    return rows;
}

void Print(const std::vector<Row>& rows) {
    std::printf("%-40s %12s %-10s %8s  %s\n", "name", "value", "unit", "ratio", "against");
    for (const Row& row : rows) {
        std::printf("%-40s %12.1f %-10s ", row.name.c_str(), row.value, row.unit.c_str());
        if (row.against.empty())
            std::printf("%8s\n", "-");
        else
            std::printf("%8.2f  %s\n", row.ratio, row.against.c_str());
    }
}

bool WriteJson(const std::vector<Row>& rows, const std::string& path) {
    nlohmann::json list = nlohmann::json::array();
    for (const Row& row : rows) {
        nlohmann::json entry{{"name", row.name}, {"value", row.value}, {"unit", row.unit}};
        entry["ratio"] = row.against.empty() ? nlohmann::json() : nlohmann::json(row.ratio);
        entry["against"] = row.against.empty() ? nlohmann::json() : nlohmann::json(row.against);
        list.push_back(std::move(entry));
    }
    std::ofstream out(path);
    out << list.dump(2) << '\n';
    return static_cast<bool>(out.flush());
}

}  // namespace bench
