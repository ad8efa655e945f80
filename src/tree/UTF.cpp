#include "tree/UTF.h"

#include <cstdint>
#include <cstdlib>

namespace {

// Growable output of ToUTF8. The sizes follow the usual rule (first limit 4
// below the end, after growth 2 below); Room additionally makes sure that a
// character and the terminator always fit, whatever length was claimed.
struct TOut {
  char* Data;
  size_t Size;
  size_t Limit;
  size_t Pos;

  explicit TOut(size_t size) : Data((char*)malloc(size)), Size(size), Limit(size - 4), Pos(0) {}

  void Grow() {
    Size += Size / 2;
    Data = (char*)realloc(Data, Size);
    Limit = Size - 2;
  }

  // Before a character of the given bytes, or 0 for the terminator.
  void Room(size_t bytes) {
    if (bytes && Pos >= Limit) Grow();
    while (Pos + bytes + 1 > Size) Grow();
  }
};

}  // namespace

char* ToUTF8(const wchar_t* text, int length, int* outLength, bool reversed) {
  if (!text) text = L"";
  size_t n = length > 0 ? (size_t)length : wcslen(text);
  TOut out(n * 6 / 5 + 8);
  for (; *text; text++) {
    // Unsigned, so that anything beyond U+FFFF (or negative) takes the
    // three-byte form, whose lead byte then overflows.
    uint32_t c = (uint32_t)*text;
    if (c <= 127) {
      out.Room(1);
      out.Data[out.Pos++] = (char)c;
      continue;
    }
    unsigned char b[3];
    int count;
    if (c <= 2047) {
      b[0] = (unsigned char)(0xC0 | (c >> 6));
      b[1] = (unsigned char)(0x80 | (c & 63));
      count = 2;
    } else {
      b[0] = (unsigned char)(0xE0 + (c >> 12));
      b[1] = (unsigned char)(0x80 | ((c >> 6) & 63));
      b[2] = (unsigned char)(0x80 | (c & 63));
      count = 3;
    }
    out.Room((size_t)count);
    for (int i = 0; i < count; i++) out.Data[out.Pos++] = (char)b[reversed ? count - 1 - i : i];
  }
  out.Room(0);
  out.Data[out.Pos] = 0;
  if (outLength) *outLength = (int)out.Pos;
  return out.Data;
}

wchar_t* ToUnicode(const char* source, wchar_t* target) {
  const unsigned char* s = (const unsigned char*)source;
  if (s) {
    // A sequence cut short by the terminator ends the text there.
    for (unsigned b; (b = *s) != 0;) {
      unsigned b2, b3;
      if (b < 0x80) {
        *target++ = (wchar_t)b;
        s++;
      } else if ((b & 0x40) == 0) {
        // Reversed: continuation bytes first, the lead byte last.
        if (!(b2 = s[1])) break;
        if (b2 & 0x40) {
          *target++ = (wchar_t)((b2 & 31) * 64 + (b & 63));
          s += 2;
        } else {
          if (!(b3 = s[2])) break;
          *target++ = (wchar_t)((b3 << 12 & 0xFFFF) + (b2 & 63) * 64 + (b & 63));
          s += 3;
        }
      } else if (b & 0x20) {
        if (!(b2 = s[1]) || !(b3 = s[2])) break;
        *target++ = (wchar_t)((b << 12 & 0xFFFF) + (b2 & 63) * 64 + (b3 & 63));
        s += 3;
      } else {
        if (!(b2 = s[1])) break;
        *target++ = (wchar_t)((b & 31) * 64 + (b2 & 63));
        s += 2;
      }
    }
  }
  *target = 0;
  return target;
}
