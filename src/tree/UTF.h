// The engine's own UTF-8 codec. It stops at three bytes per character and can
// write each multi-byte sequence in reversed byte order; the reader takes both
// orders without a flag. No validation: each byte is taken for what its top
// bits say. A sequence cut short by the terminator ends the text there.
#pragma once
#include <wchar.h>

// New malloc block, NUL-terminated. length 0 means up to the terminator; it only
// sizes the first buffer, the loop always runs to the NUL. outLength may be null.
char* ToUTF8(const wchar_t* text, int length, int* outLength, bool reversed);
// Writes the wide text and its terminator; target needs a cell per source byte
// plus one. Returns the terminator's address. Null source gives "".
wchar_t* ToUnicode(const char* source, wchar_t* target);
