#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

// Runs the entry over every file of the folders named; at least one file must be there.
int main(int argc, char **argv) {
    std::size_t files = 0;
    for (int i = 1; i < argc; i++) {
        for (const auto &file : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!file.is_regular_file()) {
                continue;
            }
            std::ifstream stream(file.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
            // Flushed, so that the file at which the entry fails is on the screen.
            std::printf("%s, %zu bytes\n", file.path().c_str(), bytes.size());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
            files++;
        }
    }
    std::printf("%zu files\n", files);
    return files == 0 ? 1 : 0;
}
