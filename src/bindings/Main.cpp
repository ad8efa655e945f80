// The library's exported main, for hosts that look the symbol up; nothing
// calls it. Built only into the shared library, so programs that link the
// engine's objects (the tests) keep their own main.
#include "sarvendo.h"

extern "C" SARVENDO_API int main(int, char**) { return 1; }
