// Runs a fuzz target once over every file of a directory.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz.h"

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<char> input{std::istreambuf_iterator<char>(in), {}};
        const Exact<uint8_t> copy(input.size());
        std::copy(input.begin(), input.end(), copy.Get());
        LLVMFuzzerTestOneInput(copy.Get(), input.size());
        ++count;
    }
    printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
