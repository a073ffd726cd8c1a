#include "tests/simulation/kernel/callers.h"

#include <array>
#include <cstdio>
#include <execinfo.h>

#include "tests/simulation/kernel/memory.h"

namespace sim
{
namespace
{

constexpr int DEEPEST = 64;

} // namespace

Callers callers_in(const Image &image)
{
    const OwnMemory own;
    void *frames[DEEPEST];
    const int count = backtrace(frames, DEEPEST);
    Callers callers;
    for (int i = 0; i < count; ++i) {
        // A return address is behind the call.
        if (const uintptr_t offset = image.offset_of(static_cast<const char *>(frames[i]) - 1)) {
            callers.push_back(offset);
        }
    }
    return callers;
}

std::string describe(const Callers &callers, const std::string &daemon)
{
    std::string command = "addr2line -Cfpse " + image_file(daemon);
    for (const uintptr_t offset : callers) {
        char text[32];
        snprintf(text, sizeof(text), " %zx", offset);
        command += text;
    }
    std::string lines;
    if (FILE *output = popen(command.c_str(), "r")) {
        std::array<char, 1024> line;
        while (fgets(line.data(), line.size(), output) != nullptr) {
            lines += "        " + std::string(line.data());
        }
        pclose(output);
    }
    return lines;
}

} // namespace sim
