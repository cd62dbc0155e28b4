// Runs a fuzz target over saved inputs: all files of the folders that are named.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &file : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream in(file.path(), std::ios::binary);
            const std::vector<char> input{std::istreambuf_iterator<char>(in), {}};
            std::printf("%s\n", file.path().filename().c_str());
            std::fflush(stdout); // before a crash
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
            ++count;
        }
    }
    return count == 0 ? 1 : 0;
}
