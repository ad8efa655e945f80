#include "api/Args.h"

#include <cstdlib>
#include <cstring>

#include "tree/UTF.h"

TWideArg::TWideArg(const char* text) : Text(Stack) {
  size_t length = text ? strlen(text) : 0;
  // ToUnicode needs a cell per byte plus the terminator.
  if (length >= (size_t)StackSize) Text = (wchar_t*)malloc((length + 1) * sizeof(wchar_t));
  if (!Text) {
    // No memory for a long argument: it reads as empty rather than cut.
    Text = Stack;
    text = nullptr;
  }
  ToUnicode(text, Text);
}

TWideArg::~TWideArg() {
  if (Text != Stack) free(Text);
}

TNarrowArg::TNarrowArg(const wchar_t* text) : Text(nullptr) {
  if (!text) return;
  size_t length = wcslen(text);
  Text = length < (size_t)StackSize ? Stack : (char*)malloc(length + 1);
  if (!Text) return;
  for (size_t i = 0; i <= length; i++) Text[i] = (char)(text[i] & 0xFF);
}

TNarrowArg::~TNarrowArg() {
  if (Text != Stack) free(Text);
}

char* Narrow(wchar_t* text, int* outLength) {
  if (!text) return nullptr;
  char* result = ToUTF8(text, 0, outLength, false);
  free(text);
  return result;
}
