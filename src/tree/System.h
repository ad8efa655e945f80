// Wide-text shims the engine's code is written against, and the escaping of
// cell texts for the export.
#pragma once
#include <cstdio>
#include <wchar.h>

// Decimal text of an integer; the radix is ignored. Returns buffer.
wchar_t* _itow(int value, wchar_t* buffer, int radix);
wchar_t* _i64tow(long long value, wchar_t* buffer, int radix);
// A single double printed through sprintf (format narrowed to 64 characters,
// result widened up to 256 characters). Returns sprintf's length.
int swprintf(wchar_t* buffer, const wchar_t* format, double value);
// fopen of narrowed strings (path up to 1024 characters, mode up to 10).
FILE* _wfopen(const wchar_t* path, const wchar_t* mode);
// Copies with the terminator; returns the terminator's address in target.
wchar_t* _wcspcpy(wchar_t* target, const wchar_t* source);
wchar_t* _wcscpy(wchar_t* target, const wchar_t* source);
wchar_t* _wcslwr(wchar_t* text);
wchar_t* _wcsupr(wchar_t* text);
// Export escaping: & < " (not >). Returns the terminator's address.
wchar_t* XmlCopy(wchar_t* target, const wchar_t* source);
// As XmlCopy; line feed becomes "<br>", carriage return is dropped.
wchar_t* XmlCopyN(wchar_t* target, const wchar_t* source);
