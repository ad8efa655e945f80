/* A stand-in for the core of a PHP 5 host: zend_parse_parameters reads the
   arguments the test host put in CoreState by the format text it gets
   ("l" a long, "s" a text and its length; anything else fails), taking the
   thread context behind the count when the host is thread-safe. */
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include "StandIn.h"

__attribute__((visibility("default"))) TCoreState CoreState;

__attribute__((visibility("default"))) int zend_parse_parameters(int count, ...) {
  va_list rest;
  va_start(rest, count);
  CoreState.parse_calls++;
  CoreState.context_seen = CoreState.zts ? va_arg(rest, void*) : NULL;
  const char* spec = va_arg(rest, const char*);
  int failed = (int)strlen(spec) != count || count > CoreState.count;
  for (int i = 0; !failed && spec[i]; i++) {
    const TZval* arg = &CoreState.args[i];
    if (spec[i] == 'l' && arg->type == ZvalLong) {
      *va_arg(rest, long*) = arg->value.number;
    } else if (spec[i] == 's' && arg->type == CoreState.string_type) {
      *va_arg(rest, char**) = arg->value.string.text;
      *va_arg(rest, int*) = arg->value.string.length;
    } else {
      failed = 1;
    }
  }
  va_end(rest);
  return failed ? -1 : 0;
}

__attribute__((visibility("default"))) char* _estrndup(const char* text, unsigned length) {
  CoreState.strndup_calls++;
  char* copy = malloc(length + 1);
  memcpy(copy, text, length);
  copy[length] = 0;
  return copy;
}
