// Extended attributes' values. The handler copies as many bytes as it is asked
// for, so the length is asked first, and with the gate held nothing can change
// in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The length of a value when `size` is 0, else the value and its length. -ERANGE
// when it is longer than `size`; otherwise what the handler answers, as the
// kernel may see it.
int XattrValue(const std::string &path, const char *name, char *value,
               size_t size, uint32_t position);
