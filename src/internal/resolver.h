// The resolver's functions that want room for their answer.
#pragma once

#include <errno.h>
#include <netdb.h>
#include <stddef.h>
#include <stdlib.h>

#include "guards.h"

/// The answer of one of the resolver's functions that want room: what `ask` gives with enough of it. Null with
/// *resolverError if there is none.
template <class Ask>
const hostent* AskResolver(MallocPtr<char>* room, hostent* entry, int* resolverError, Ask ask)
{
    constexpr size_t kFirstRoom = 2048;
    constexpr size_t kMostRoom = size_t{1} << 20;
    *resolverError = NO_RECOVERY;
    for (size_t size = kFirstRoom; size <= kMostRoom; size *= 2) {
        room->reset(static_cast<char*>(malloc(size)));
        if (*room == nullptr)
            return nullptr;
        hostent* answer = nullptr;
        const int error = ask(entry, room->get(), size, &answer, resolverError);
        if (error != ERANGE)
            return error == 0 ? answer : nullptr;
    }
    return nullptr;
}
