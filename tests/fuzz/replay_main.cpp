/*
 * Runs a fuzz target over the files of a folder, each in a block of exactly its size. Fails when there is
 * none.
 */
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    unsigned long count = 0;

    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};

        bytes.shrink_to_fit();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
        ++count;
    }
    printf("%lu inputs\n", count);
    return count == 0 ? 1 : 0;
}
