// Fixed-size text fields of reply records: the text cut at the field's size, the rest zero-filled.
// A text as long as the field fills it without a terminating zero, as the host expects.
#pragma once

#include <cstring>

namespace orv {

inline void copyTextField(char* field, size_t size, char const* text)
{
    size_t const length = strnlen(text, size);
    memcpy(field, text, length);
    memset(field + length, 0, size - length);
}

} // namespace orv
