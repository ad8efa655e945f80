/* What a PHP 5 host offers a run-time module, as far as the stand-ins give
   it: the zval and function entry layouts, and the stand-in core's record of
   the last call, through which the test host sets arguments and reads what
   the module did with them. */
#ifndef SARVENDO_STAND_IN_H
#define SARVENDO_STAND_IN_H

#include <stdint.h>

typedef struct {
  union {
    long number;
    struct {
      char* text;
      int length;
    } string;
  } value;
  uint32_t refcount;
  uint8_t type;
  uint8_t is_ref;
} TZval;

enum { ZvalNull = 0, ZvalLong = 1 };

typedef struct {
  const char* name;
  void (*handler)(int, TZval*, ...);
  const void* arg_info;
  uint32_t count;
  uint32_t flags;
} TFunctionEntry;

/* The stand-in core: arguments of the call in progress, with the type code
   of a string by the host's version; what zend_parse_parameters got. */
typedef struct {
  TZval args[8];
  int count;
  int string_type;
  int zts;
  void* context_seen;
  int parse_calls;
  int strndup_calls;
} TCoreState;

#endif
