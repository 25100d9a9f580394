#pragma once

#include <cstddef>

// The only way to include RapidJSON here. Lengths have 64 bits: with its own 32 bits a text of 700
// megabytes would overflow its reckoning of the room that is needed.
#define RAPIDJSON_NO_SIZETYPEDEFINE

namespace rapidjson {

using SizeType = std::size_t;

}  // namespace rapidjson

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
