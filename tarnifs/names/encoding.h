// Conversions of names. Every name that is stored in or looked up in the
// catalogue passes through getUTF8MACName, so that names from the host
// (decomposed on one of them) and names from the device (mostly composed, free
// to contain "/") meet.
#pragma once

#include <cstddef>
#include <string>

// A copy of `str` with every `from` replaced by `to`. A replacement is not
// searched again; an empty `from` replaces nothing.
std::string replaceAll(std::string str, const std::string &from,
                       const std::string &to);

// A copy of a name with every "/" replaced by ":". Null gives an empty text.
std::string chkInvalidString(const char *name);

// Writes the canonical form of a name into `out`: "/" as ":", composed. 0, or a
// negative number after logging; `out` then holds the unconverted bytes. The
// caller's buffer must have room for the name and be zero beyond it: the text is
// terminated only where composing made it shorter.
int getUTF8MACName(const char *name, char *out);

// Composes `len` bytes of text in place, with `size` bytes of room; what a
// shorter result leaves is zero. 0 or -1; after -1 the buffer is as it was.
int GetEncodedString(char *buf, size_t len, size_t size);

// Converters. 0, or -1 after logging; the output is not terminated, and what it
// holds after a failure is undefined.
//
// Decomposed UTF-8 to composed UTF-8 (the name tells it the other way round).
int utf8_to_utf8mac(char *in, int inLen, char *out, int outLen);
// Decomposed UTF-8 to UCS-2, little-endian.
int utf8_to_unicode(char *in, int inLen, char *out, int outLen);
// Text of the character set that GetStringfromCode names, to decomposed UTF-8.
int unicode_to_utf8(int code, char *in, int inLen, char *out, int outLen);

// The iconv name of a character set code; never null.
const char *GetStringfromCode(int code);
