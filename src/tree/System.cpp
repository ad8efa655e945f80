#include "tree/System.h"

#include <cwctype>

namespace {

// Keeps the low 8 bits of each character; at most max characters.
void Narrow(char* target, const wchar_t* source, int max) {
  int i = 0;
  if (source)
    for (; i < max && source[i]; i++) target[i] = (char)(source[i] & 0xFF);
  target[i] = 0;
}

wchar_t* Widen(wchar_t* target, const char* source, int max) {
  int i = 0;
  for (; i < max && source[i]; i++) target[i] = (wchar_t)(unsigned char)source[i];
  target[i] = 0;
  return target;
}

}  // namespace

wchar_t* _itow(int value, wchar_t* buffer, int) {
  char text[32];
  snprintf(text, sizeof text, "%d", value);
  return Widen(buffer, text, 64);
}

wchar_t* _i64tow(long long value, wchar_t* buffer, int) {
  char text[32];
  snprintf(text, sizeof text, "%lld", value);
  return Widen(buffer, text, 64);
}

int swprintf(wchar_t* buffer, const wchar_t* format, double value) {
  char narrow[65], text[257];
  Narrow(narrow, format, 64);
  int length = snprintf(text, sizeof text, narrow, value);
  Widen(buffer, text, 256);
  return length;
}

FILE* _wfopen(const wchar_t* path, const wchar_t* mode) {
  if (!path || !mode) return nullptr;
  char narrowPath[1025], narrowMode[11];
  Narrow(narrowPath, path, 1024);
  Narrow(narrowMode, mode, 10);
  return fopen(narrowPath, narrowMode);
}

wchar_t* _wcspcpy(wchar_t* target, const wchar_t* source) {
  while ((*target = *source++) != 0) target++;
  return target;
}

wchar_t* _wcscpy(wchar_t* target, const wchar_t* source) {
  _wcspcpy(target, source);
  return target;
}

wchar_t* _wcslwr(wchar_t* text) {
  for (wchar_t* p = text; *p; p++) *p = (wchar_t)towlower((wint_t)*p);
  return text;
}

wchar_t* _wcsupr(wchar_t* text) {
  for (wchar_t* p = text; *p; p++) *p = (wchar_t)towupper((wint_t)*p);
  return text;
}

namespace {

wchar_t* Escape(wchar_t* target, const wchar_t* source, bool lines) {
  for (; source && *source; source++) {
    const wchar_t* entity;
    switch (*source) {
      case L'&': entity = L"&amp;"; break;
      case L'<': entity = L"&lt;"; break;
      case L'"': entity = L"&quot;"; break;
      case L'\n': entity = lines ? L"<br>" : nullptr; break;
      case L'\r': entity = lines ? L"" : nullptr; break;
      default: entity = nullptr;
    }
    if (entity) target = _wcspcpy(target, entity);
    else *target++ = *source;
  }
  *target = 0;
  return target;
}

}  // namespace

wchar_t* XmlCopy(wchar_t* target, const wchar_t* source) { return Escape(target, source, false); }

wchar_t* XmlCopyN(wchar_t* target, const wchar_t* source) { return Escape(target, source, true); }
