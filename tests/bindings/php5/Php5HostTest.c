/* Loads the library the way a PHP 5 host does, once for each layout of the
   module entry: a stand-in core and a stand-in donor extension are loaded
   first, the donor tells the version, and get_module must fill the entry at
   that version's offsets. Then the handlers are called with the host's
   arguments (thread context included where the host passes one) and zvals
   as that host lays them out. Arguments: core, donor, library. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "StandIn.h"

static int Failures = 0;

#define CHECK(cond, ...)                                  \
  do {                                                    \
    if (!(cond)) {                                        \
      Failures++;                                         \
      fprintf(stderr, "%s:%d: ", __FILE__, __LINE__);     \
      fprintf(stderr, __VA_ARGS__);                       \
      fputc('\n', stderr);                                \
    }                                                     \
  } while (0)

typedef struct {
  int32_t api;
  uint8_t zts, debug;
  int name_at, table_at, string_type;
} TLayout;

/* The version boundaries and both sides of each. */
static const TLayout Layouts[] = {
    {20040411, 0, 0, 16, 24, 3}, {20040412, 1, 0, 24, 32, 3}, {20050921, 1, 1, 24, 32, 3},
    {20050922, 0, 0, 32, 40, 6}, {20090626, 1, 0, 32, 40, 6}, {20121212, 0, 1, 32, 40, 6},
};

static TCoreState* Core;
static unsigned char* Donor;
static const TLayout* Host;
static const TFunctionEntry* Table;
static char ContextMarker;
static const uint8_t Untouched = 0xEE;

static void* Field(const unsigned char* entry, int offset) {
  void* value;
  memcpy(&value, entry + offset, sizeof(value));
  return value;
}

static TZval Long(long number) {
  TZval zval = {{0}, 1, ZvalLong, 0};
  zval.value.number = number;
  return zval;
}

static TZval Text(const char* text) {
  TZval zval = {{0}, 1, (uint8_t)Host->string_type, 0};
  zval.value.string.text = (char*)text;
  zval.value.string.length = (int)strlen(text);
  return zval;
}

/* Calls the named handler as the host of the current layout would. */
static TZval Call(const char* name, int count, const TZval* args) {
  TZval result;
  memset(&result, 0, sizeof(result));
  result.type = Untouched;
  const TFunctionEntry* entry = Table;
  while (entry->name && strcmp(entry->name, name)) entry++;
  CHECK(entry->name, "no function %s", name);
  if (!entry->name) return result;
  memcpy(Core->args, args, sizeof(TZval) * (size_t)count);
  Core->count = count;
  Core->context_seen = NULL;
  const int calls = Core->parse_calls;
  void* context = &ContextMarker;
  if (Host->api > 20050921) {
    if (Host->zts)
      entry->handler(count, &result, (TZval**)NULL, (TZval*)NULL, 1, context);
    else
      entry->handler(count, &result, (TZval**)NULL, (TZval*)NULL, 1);
  } else {
    if (Host->zts)
      entry->handler(count, &result, (TZval*)NULL, 1, context);
    else
      entry->handler(count, &result, (TZval*)NULL, 1);
  }
  if (Host->zts && Core->parse_calls > calls) CHECK(Core->context_seen == context, "%s: context not passed", name);
  return result;
}

/* The result as text for comparison: "long N", "null", "unset", or the
   string, which is the host's copy and is freed here. */
static void Describe(TZval* zval, char* out, size_t room) {
  if (zval->type == ZvalLong)
    snprintf(out, room, "long %ld", zval->value.number);
  else if (zval->type == ZvalNull)
    snprintf(out, room, "null");
  else if (zval->type == Untouched)
    snprintf(out, room, "unset");
  else if (zval->type == Host->string_type) {
    CHECK((int)strlen(zval->value.string.text) == zval->value.string.length, "length");
    snprintf(out, room, "%s", zval->value.string.text);
    free(zval->value.string.text);
  } else
    snprintf(out, room, "type %d", zval->type);
}

static void CheckEntry(const unsigned char* entry) {
  uint16_t size;
  int32_t api;
  uint64_t word, donorWord;
  memcpy(&size, entry, 2);
  memcpy(&api, entry + 4, 4);
  memcpy(&word, entry + 160, 8);
  memcpy(&donorWord, Donor + 160, 8);
  CHECK(size == 272, "size %d", size);
  CHECK(api == Host->api, "api %d", api);
  CHECK(entry[8] == Host->debug && entry[9] == Host->zts, "debug %d zts %d", entry[8], entry[9]);
  CHECK(word == donorWord, "word at 160 not copied");
  const char* name = Field(entry, Host->name_at);
  CHECK(name && !strcmp(name, "Sarvendo Module"), "name at %d", Host->name_at);
  Table = Field(entry, Host->table_at);
  CHECK(Table != NULL, "table at %d", Host->table_at);
}

static void CheckTable(void) {
  static const struct {
    const char* name;
    uint32_t count;
  } Expected[] = {{"SVCreateGrid", 6}, {"SVUpdateGrid", 2}, {"SVFindGrid", 1}, {"SVFindGridsStr", 4},
                  {"SVDeleteGrid", 1}, {"SVClear", 0}, {"SVFreeString", 1}, {"SVGetBody", 2},
                  {"SVGetPage", 2}, {"SVSave", 2}, {"SVSaveEx", 3}, {"SVSaveToFile", 3},
                  {"SVGetData", 1}, {"SVLastError", 0}, {"SVGetLastId", 1}, {"SVGetChanges", 2},
                  {"SVLockLibrary", 1}, {"SVUnlockLibrary", 0}, {"SVSetDebug", 2}, {"SVEnterRead", 0},
                  {"SVLeaveRead", 0}, {"SVEnterWrite", 0}, {"SVLeaveWrite", 0}, {"SVSetGridLocale", 2},
                  {"SVGetExport", 2}, {"SVGetSession", 1}, {"SVGetGridSession", 1}, {"SVGetCells", 5}};
  const int count = (int)(sizeof(Expected) / sizeof(Expected[0]));
  for (int i = 0; i < count; i++) {
    CHECK(Table[i].name && !strcmp(Table[i].name, Expected[i].name), "entry %d: %s", i, Table[i].name);
    CHECK(Table[i].count == Expected[i].count && Table[i].flags == 0 && !Table[i].arg_info && Table[i].handler,
          "entry %s", Expected[i].name);
  }
  CHECK(!Table[count].name && !Table[count].handler, "table not ended after %d entries", count);
}

static const char* const GridDoc =
    "<Grid><IO Session='php5'/><Cfg Kind='php'/><Cols><C Name='A' Type='Int'/></Cols>"
    "<Body><B><I id='r1' A='5'/></B></Body></Grid>";

/* One row per call: what goes in, and which results are right. Operations
   still being built answer as they do today or as they will when built:
   the second expectation; "*" is any string, "*X" any containing X. */
typedef struct {
  const char* name;
  int count;
  TZval args[6];
  const char* expected;
  const char* also;
} TCallCase;

static int Matches(const char* got, const char* expected) {
  if (!expected) return 0;
  if (expected[0] != '*') return !strcmp(got, expected);
  return strncmp(got, "long ", 5) && strcmp(got, "null") && strcmp(got, "unset") && strstr(got, expected + 1);
}

static void CheckCalls(void) {
  const TZval empty = Text(""), grid = Text(GridDoc);
  TZval args[6] = {grid, empty, empty, empty, empty, empty};
  TZval created = Call("SVCreateGrid", 6, args);
  CHECK(created.type == ZvalLong && created.value.number == 0, "created %ld", created.value.number);
  const int strndups = Core->strndup_calls;
  char* freed = strdup("engine block");
  const TCallCase cases[] = {
      {"SVGetGridSession", 1, {Long(0)}, "php5", NULL},
      {"SVGetGridSession", 1, {Long(7)}, "null", NULL},
      {"SVFindGrid", 1, {Text("<Grid><IO Session='php5'/></Grid>")}, "long 0", NULL},
      {"SVFindGrid", 1, {Text("<Grid")}, "long -3", NULL},
      {"SVFindGridsStr", 4, {Long(0), Text("<Grid><Cfg Kind='php'/></Grid>"), Long(0), Long(0)}, "0", NULL},
      {"SVFindGridsStr", 4, {Long(0), Text("<Grid><Cfg Kind='no'/></Grid>"), Long(0), Long(0)}, "null", NULL},
      {"SVGetSession", 1, {Text("<Grid><IO Session='s1'/></Grid>")}, "s1", NULL},
      {"SVGetSession", 1, {Text("<Grid/>")}, "null", NULL},
      {"SVUpdateGrid", 2, {Long(0), Text("<Grid><Cfg Kind='php'/></Grid>")}, "long 0", NULL},
      {"SVGetBody", 2, {Long(0), Text("<Grid/>")}, "*<I id=\"r1\" A=\"5\"", NULL},
      {"SVGetBody", 2, {Long(0), Long(1)}, "long -15", NULL},
      {"SVGetBody", 1, {Long(0)}, "long -15", NULL},
      {"SVGetBody", 2, {Long(3), Text("<Grid/>")}, "null", NULL},
      {"SVGetPage", 2, {Long(3), Text("<Grid/>")}, "null", NULL},
      {"SVGetData", 1, {Long(0)}, "*Session=\"php5\"", NULL},
      {"SVGetData", 1, {Text("0")}, "long -15", NULL},
      {"SVGetLastId", 1, {Long(0)}, "", NULL},
      {"SVGetCells", 5, {Long(0), Text("r1"), Text("A"), Long(0), Text("")}, "5", NULL},
      {"SVGetCells", 5, {Long(0), Text("r1"), Long(0), Text("A"), Text("")}, "long -15", NULL},
      {"SVSetGridLocale", 2, {Long(0), Text("")}, "long 0", NULL},
      {"SVSetGridLocale", 2, {Long(9), Text("")}, "long -1", NULL},
      {"SVSave", 2, {Long(0), Text("<Grid><Changes><I id='r1' A='6' Changed='1'/></Changes></Grid>")},
       "long 0", NULL},
      {"SVSaveEx", 3, {Long(0), Text("<Grid><Changes><I A='1'/></Changes></Grid>"), Long(1)}, "long 1", NULL},
      {"SVSaveEx", 3, {Long(5), Text("<Grid/>"), Long(0)}, "long -1", NULL},
      {"SVSaveToFile", 3, {Long(5), Text("/tmp/none.xml"), Long(0)}, "long -1", NULL},
      {"SVGetChanges", 2, {Long(0), Long(1)}, "*<Changes", NULL},
      {"SVGetChanges", 2, {Long(0), Long(0)}, "null", NULL},
      {"SVGetChanges", 2, {Long(5), Long(0)}, "null", NULL},
      {"SVGetExport", 2, {Long(0), Text("<Grid/>")}, "null", "*<html"},
      {"SVLastError", 0, {Long(0)}, "null", NULL},
      {"SVSetDebug", 2, {Long(1), Text("x")}, "long -1", NULL},
      {"SVEnterRead", 0, {Long(0)}, "unset", NULL},
      {"SVLeaveRead", 0, {Long(0)}, "unset", NULL},
      {"SVEnterWrite", 0, {Long(0)}, "unset", NULL},
      {"SVLeaveWrite", 0, {Long(0)}, "unset", NULL},
      {"SVFreeString", 1, {Text(freed)}, "unset", NULL},
      {"SVDeleteGrid", 1, {Long(0)}, "long 0", NULL},
      {"SVDeleteGrid", 1, {Long(0)}, "long -1", NULL},
      {"SVGetGridSession", 1, {Long(0)}, "null", NULL},
      {"SVClear", 0, {Long(0)}, "unset", NULL},
  };
  for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); i++) {
    TZval result = Call(cases[i].name, cases[i].count, cases[i].args);
    char got[4096];
    Describe(&result, got, sizeof(got));
    CHECK(Matches(got, cases[i].expected) || Matches(got, cases[i].also), "api %d: %s case %zu gave \"%.200s\"",
          Host->api, cases[i].name, i, got);
  }
  CHECK(Core->strndup_calls > strndups, "strings not copied by the host");
}

int main(int argc, char** argv) {
  if (argc != 4) return fprintf(stderr, "usage: %s core donor library\n", argv[0]), 2;
  void* core = dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL);
  void* donor = dlopen(argv[2], RTLD_NOW | RTLD_GLOBAL);
  void* library = dlopen(argv[3], RTLD_NOW | RTLD_GLOBAL);
  if (!core || !donor || !library) return fprintf(stderr, "%s\n", dlerror()), 2;
  Core = dlsym(core, "CoreState");
  Donor = dlsym(donor, "DonorEntry");
  void* (*getModule)(void) = (void* (*)(void))dlsym(library, "get_module");
  if (!Core || !Donor || !getModule) return fprintf(stderr, "missing symbols\n"), 2;
  for (size_t i = 0; i < sizeof(Layouts) / sizeof(Layouts[0]); i++) {
    Host = &Layouts[i];
    memcpy(Donor + 4, &Host->api, 4);
    Donor[8] = Host->debug;
    Donor[9] = Host->zts;
    const uint64_t word = 0x1122334455667788ull ^ (uint64_t)Host->api;
    memcpy(Donor + 160, &word, 8);
    Core->zts = Host->zts;
    Core->string_type = Host->string_type;
    const unsigned char* entry = getModule();
    CheckEntry(entry);
    if (!Table) continue;
    CheckTable();
    CheckCalls();
  }
  dlclose(library);
  if (Failures) fprintf(stderr, "%d failures\n", Failures);
  return Failures ? 1 : 0;
}
