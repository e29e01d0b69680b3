// A C++ caller: what the library hands out goes into owners.
#include <ZKQ_general.h>

#include <iostream>
#include <memory>
#include <string>

namespace {

struct Free {
    void operator()(void* buffer) const { ZKQGeneral_FreeMallocBuffer(buffer); }
};

/// Appends each token of a line to a memory object, one a line, and takes the result.
std::string JoinTokens(const char* line)
{
    int count = 0;
    char** tokens = ZKQGeneral_ParseLineInfo(line, " \t,", &count);
    if (tokens == nullptr)
        return ZKQGeneral_GetGeneralErrorInfo();
    void* memory = ZKQGeneral_MEM_malloc(0);
    for (int i = 0; i < count; ++i) {
        std::string text = tokens[i] + std::string("\n");
        ZKQGeneral_MEM_Write(memory, reinterpret_cast<unsigned char*>(text.data()), static_cast<int>(text.size()));
    }
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    unsigned char* data = nullptr;
    int size = 0;
    ZKQGeneral_MEM_Detach(memory, &data, &size);
    const std::unique_ptr<unsigned char, Free> owner(data);
    ZKQGeneral_MEM_free(memory);
    return {reinterpret_cast<char*>(data), static_cast<size_t>(size)};
}

} // namespace

int main()
{
    std::cout << JoinTokens("alpha, beta\tgamma");
}
