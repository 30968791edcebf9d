// Gives a target each file of a corpus, for compilers that have no fuzzer.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int /*argc*/, char** argv) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::cout << entry.path() << std::endl;
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input(std::istreambuf_iterator<char>(file), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    }
}
