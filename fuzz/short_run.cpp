// A short deterministic run: every importer of the table over damaged copies of its seeds.
//
// usage: fuzz_short_run SEEDS ITERATIONS
// SEEDS holds a folder for each format. The program fails when a format has no seeds, or when none of its seeds loads.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "imexport/frame/media_io_formats.h"
#include "import_fuzzer.h"

namespace {

using Bytes = std::vector<uint8_t>;

class Noise {
public:
    uint32_t Next(size_t below) {
        _state = _state * 6364136223846793005u + 1442695040888963407u;
        return uint32_t((_state >> 33) % below);
    }

private:
    uint64_t _state = 42;
};

std::vector<Bytes> ReadSeeds(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<Bytes> seeds;
    for (const std::filesystem::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return seeds;
}

/// Boundary values.
constexpr uint8_t kEdges[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF};

void Damage(Bytes& bytes, Noise& noise) {
    for (uint32_t changes = noise.Next(4) + 1; changes > 0 && !bytes.empty(); --changes) {
        const size_t at = noise.Next(bytes.size());
        switch (noise.Next(5)) {
            case 0:
                bytes[at] = uint8_t(bytes[at] ^ (1u << noise.Next(8)));
                break;
            case 1:
                bytes[at] = kEdges[noise.Next(sizeof(kEdges))];
                break;
            case 2:
                std::fill_n(bytes.begin() + long(at), std::min(size_t(4), bytes.size() - at),
                            kEdges[noise.Next(sizeof(kEdges))]);
                break;
            case 3:
                bytes.resize(at);
                break;
            default:
                bytes.insert(bytes.begin() + long(at), uint8_t(noise.Next(256)));
        }
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 3) {
        std::fprintf(stderr, "usage: %s SEEDS ITERATIONS\n", arguments[0]);
        return 2;
    }
    const std::filesystem::path folder = arguments[1];
    const long iterations = std::strtol(arguments[2], nullptr, 10);
    for (const orvik::FileFormatEntry& format : orvik::GetFileFormatTable()) {
        const std::vector<Bytes> seeds = ReadSeeds(folder / format.name);
        const std::string_view suffix = format.suffixes[0];
        Noise noise;
        long good = 0, pictures = 0;
        for (const Bytes& seed : seeds)
            good += orvik::FuzzImport(seed.data(), seed.size(), suffix);
        if (good == 0) {
            std::fprintf(stderr, "%s: no seed loads\n", arguments[1]);
            return 1;
        }
        for (long i = 0; i < iterations; ++i) {
            Bytes bytes = seeds[size_t(i) % seeds.size()];
            Damage(bytes, noise);
            if (i % 4 != 0)
                orvik::MendDamage(format.name, bytes);
            pictures += orvik::FuzzImport(bytes.data(), bytes.size(), suffix);
        }
        std::printf("%.*s: %ld of %ld damaged files gave a picture\n", int(format.name.size()), format.name.data(),
                    pictures, iterations);
    }
    return 0;
}
