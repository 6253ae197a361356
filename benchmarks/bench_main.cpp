/// `orvik_bench [--json FILE] [--benchmark_filter=REGEX ...]`: measures, prints a table of ratios, writes them as JSON.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <malloc.h>
#include <regex>
#include <string>
#include <vector>

#include "bench_report.h"
#include "blend_bench.h"
#include "codec_bench.h"
#include "compose_bench.h"
#include "pixel_bench.h"
#include "profile_bench.h"

#include "orvik/host.h"

int main(int argc, char** argv) {
    std::string jsonPath, filter;
    std::vector<std::string> words{argv[0]};
    // The machine is shared: both sides of a ratio run interleaved, and the median of the repetitions counts.
    words.insert(words.end(), {"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=7",
                               "--benchmark_min_time=0.05"});
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc)
            jsonPath = argv[++i];
        else
            words.push_back(argv[i]);
        constexpr char kFilter[] = "--benchmark_filter=";
        if (std::strncmp(argv[i], kFilter, sizeof(kFilter) - 1) == 0)
            filter = argv[i] + sizeof(kFilter) - 1;
    }
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;

    const std::string self = argv[0];
    const size_t slash = self.rfind('/');
    const std::vector<bench::Row> program =
        bench::MeasureProgram(slash == std::string::npos ? "." : self.substr(0, slash), filter);

    orvik::Result<orvik::Host> host = orvik::Host::Start();
    if (!host) {
        std::fprintf(stderr, "orvik_bench: %s\n", host.GetError()->ToString().GetCString());
        return 1;
    }
    const std::vector<bench::Row> pixels = bench::MeasurePixels(filter);
    // Large blocks always come fresh from the system, for both sides, as in a program that loads one picture.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    std::vector<bench::Pairing> pairings = bench::RegisterCodecBenchmarks();
    const std::vector<bench::Pairing> profiles = bench::RegisterProfileBenchmarks();
    pairings.insert(pairings.end(), profiles.begin(), profiles.end());
    const std::vector<bench::Pairing> blends = bench::RegisterBlendBenchmarks();
    pairings.insert(pairings.end(), blends.begin(), blends.end());
    const std::vector<bench::Pairing> composes = bench::RegisterComposeBenchmarks();
    pairings.insert(pairings.end(), composes.begin(), composes.end());
    bench::Collector collector;
    const std::regex wanted(filter);
    for (const bench::Pairing& pairing : pairings) {
        // One ratio at a time, so that both sides run under the same machine load.
        if (std::regex_search(pairing.name, wanted))
            benchmark::RunSpecifiedBenchmarks(&collector, "^" + pairing.name + "(/" + pairing.against + ")?$");
    }
    bench::ReleaseCodecMaterial();
    bench::ReleaseBlendMaterial();
    bench::ReleaseComposeMaterial();
    std::vector<bench::Row> rows = bench::Compare(collector, pairings);
    rows.insert(rows.end(), pixels.begin(), pixels.end());
    rows.insert(rows.end(), program.begin(), program.end());
    bench::Print(rows);
    if (!jsonPath.empty() && !bench::WriteJson(rows, jsonPath)) {
        std::fprintf(stderr, "orvik_bench: %s: cannot be written\n", jsonPath.c_str());
        return 1;
    }
    return collector.AllFine() ? 0 : 1;
}
