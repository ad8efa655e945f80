// Text arguments and results crossing the 8-bit edge of the library.
//
// TWideArg holds a UTF-8 argument widened for the length of one call: in the
// object up to StackSize - 1 bytes, in a heap block beyond. A null argument
// reads as the empty text, as ToUnicode gives it. TNarrowArg is the reverse
// for names handed to the C library (locale, library file): the low byte of
// each character, null staying null. Narrow turns a wide result into a new
// UTF-8 block and frees the wide one; null stays null.
#pragma once
#include <wchar.h>

class TWideArg {
public:
  static const int StackSize = 1024;
  explicit TWideArg(const char* text);
  ~TWideArg();
  TWideArg(const TWideArg&) = delete;
  TWideArg& operator=(const TWideArg&) = delete;
  operator const wchar_t*() const { return Text; }

private:
  wchar_t* Text;
  wchar_t Stack[StackSize];
};

class TNarrowArg {
public:
  static const int StackSize = 512;
  explicit TNarrowArg(const wchar_t* text);
  ~TNarrowArg();
  TNarrowArg(const TNarrowArg&) = delete;
  TNarrowArg& operator=(const TNarrowArg&) = delete;
  operator const char*() const { return Text; }

private:
  char* Text;
  char Stack[StackSize];
};

// outLength, if not null, gets the byte count of the UTF-8 text.
char* Narrow(wchar_t* text, int* outLength = nullptr);
