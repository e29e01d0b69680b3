// A memory object under a sequence of commands, against a plain string. Input: the initial room, then pairs of a
// command and an amount.
#include <string.h>

#include "../../src/internal/memory_object.h"
#include "fuzz.h"

namespace {

/// What `Max` must be after an append of `length` bytes.
int GrownMax(int max, int size, int length)
{
    return max - size < length ? (max + length + 4095) / 4096 * 4096 : max;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    auto* object = static_cast<GMEM*>(ZKQGeneral_MEM_malloc(static_cast<int>(data[0]) - 1));
    std::string model;
    size_t readPosition = 0;
    int max = data[0] > 1 ? data[0] - 1 : 4096;
    for (size_t i = 1; i + 1 < size; i += 2) {
        const int amount = data[i + 1] * (data[i] & 8 ? 97 : 1);
        std::string bytes(static_cast<size_t>(amount), static_cast<char>(i));
        auto* raw = reinterpret_cast<unsigned char*>(bytes.data());
        switch (data[i] % 4) {
        case 0:
        case 1:
            if (amount > 0)
                max = GrownMax(max, static_cast<int>(model.size()), amount);
            REQUIRE(ZKQGeneral_MEM_Write(object, raw, amount) == amount);
            model += bytes;
            break;
        case 2: {
            const int count = ZKQGeneral_MEM_Read(object, raw, amount);
            REQUIRE(model.compare(readPosition, static_cast<size_t>(amount), bytes, 0, static_cast<size_t>(count)) ==
                    0);
            readPosition += static_cast<size_t>(count);
            break;
        }
        default: {
            if (data[i + 1] > 16)
                break;
            unsigned char* taken = nullptr;
            int length = -1;
            REQUIRE(ZKQGeneral_MEM_Detach(object, &taken, &length) == 0);
            REQUIRE(static_cast<size_t>(length) == model.size() &&
                    (length == 0 || memcmp(taken, model.data(), model.size()) == 0));
            free(taken);
            model.clear();
            readPosition = 0;
            max = 0;
        }
        }
        REQUIRE(object->Max == max && object->Size == static_cast<int>(model.size()));
        REQUIRE(object->WritePos == object->Size && object->ReadPos == static_cast<int>(readPosition));
    }
    ZKQGeneral_MEM_free(object);
    return 0;
}
