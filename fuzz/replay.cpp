// replay CORPUS [prefixes]: runs a target with each file of the corpus, and with `prefixes` also
// with each prefix of it; for compilers that have no fuzzer.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::cout << entry.path() << std::endl;
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input(std::istreambuf_iterator<char>(file), {});
        for (size_t size = argc > 2 ? 0 : input.size(); size <= input.size(); ++size)
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), size);
    }
}
