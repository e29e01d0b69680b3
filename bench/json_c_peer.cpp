#include "json_c_peer.h"

#include <json-c/json.h>

void* JsonCRead(const char* text, int size)
{
    constexpr int kDeepest = 1000;
    json_tokener* const reader = json_tokener_new_ex(kDeepest);
    json_object* const document = json_tokener_parse_ex(reader, text, size + 1);
    json_tokener_free(reader);
    return document;
}

std::size_t JsonCWrite(void* document)
{
    std::size_t size = 0;
    json_object_to_json_string_length(static_cast<json_object*>(document),
                                      JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_PRETTY_TAB, &size);
    return size;
}

void JsonCRelease(void* document)
{
    json_object_put(static_cast<json_object*>(document));
}
