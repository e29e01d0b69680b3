// Paths of modules: names made absolute, and searches in memory maps. Input: name, directory or map, separated by a
// NUL.
#include "../../src/internal/system.h"

#include <string.h>

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> texts = Texts(data, size, 2);
    for (const size_t room : {1, 8, 300}) {
        const Exact<char> path(room);
        if (ComputeFullPathName(texts[0], texts[1], path.Get(), room) == 0)
            REQUIRE(strlen(path.Get()) < room);
    }
    std::string_view found;
    if (FindMappedPath(texts[1], texts[0], &found) == 0) {
        REQUIRE(found.size() < 300 && found.find('\n') == std::string_view::npos);
        REQUIRE(found.data() >= texts[1].data() && found.data() + found.size() <= texts[1].data() + texts[1].size());
    }
    return 0;
}
