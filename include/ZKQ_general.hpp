/**
 * @file ZKQ_general.hpp
 * @brief The C++ layer: owners, views and results over the C functions. Header-only, for C++17 and later.
 *
 * Everything is in the namespace `zkq`. The C functions stay in reach: each owner gives its C handle with get(). The
 * layer throws nothing itself and works without exceptions and RTTI; what it takes from the standard library may fail
 * for want of memory as that does.
 */
#ifndef ZKQ_GENERAL_HPP
#define ZKQ_GENERAL_HPP

#include <ZKQ_general.h>
#include <ZKQ_general/cpp/basics.hpp>
#include <ZKQ_general/cpp/contents.hpp>
#include <ZKQ_general/cpp/documents.hpp>
#include <ZKQ_general/cpp/network.hpp>
#include <ZKQ_general/cpp/objects.hpp>

#endif
