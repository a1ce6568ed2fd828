// RunCorpus.cpp - runs a fuzz target over all files of the folders named, in the order of their names.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/Fuzz.h"

int main(int count, char** arguments) {
    std::vector<std::filesystem::path> names;
    for (int i = 1; i < count; i++) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) names.push_back(entry.path());
    }
    std::sort(names.begin(), names.end());
    for (const std::filesystem::path& name : names) {
        std::ifstream stream(name, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
        std::fprintf(stderr, "%s\n", name.filename().string().c_str()); // the last line names the one that failed
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu files\n", names.size());
    return names.empty() ? 1 : 0;
}
