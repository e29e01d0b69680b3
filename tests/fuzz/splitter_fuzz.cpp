// The line splitter against the C library's own tokenizer. Input: separators and text, separated by a NUL.
#include <ZKQ_general.h>
#include <string.h>

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> texts = Texts(data, size, 2);
    int count = -1;
    char** tokens = ZKQGeneral_ParseLineInfo(texts[1].c_str(), texts[0].c_str(), &count);
    REQUIRE(tokens != nullptr && count >= 0);
    std::string copy = texts[1];
    char* state = nullptr;
    int i = 0;
    for (char* token = strtok_r(copy.data(), texts[0].c_str(), &state); token != nullptr;
         token = strtok_r(nullptr, texts[0].c_str(), &state), ++i)
        REQUIRE(i < count && strcmp(tokens[i], token) == 0);
    REQUIRE(i == count && tokens[count] == nullptr);
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    return 0;
}
