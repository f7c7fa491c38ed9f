// ZOL_EXPORT marks the library's public API. The library is built with hidden visibility, so
// everything not marked stays out of libzoltools.so's dynamic symbol table.
#pragma once

#define ZOL_EXPORT __attribute__((visibility("default")))
