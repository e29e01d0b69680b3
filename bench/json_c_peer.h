// json-c, apart from the other peers: one of them has functions of the same names.
#pragma once

#include <cstddef>

void* JsonCRead(const char* text, int size);
std::size_t JsonCWrite(void* document);
void JsonCRelease(void* document);
