// The library as an extension of a PHP 5 host, built without any PHP header
// or library: get_module finds the host's core among the modules loaded in
// the process, reads the engine's version from another extension and lays
// the module entry out for it. Texts cross as UTF-8 through the registry's
// 8-bit operations. The globals are written only by get_module, which the
// host calls once, while loading.
#include <dlfcn.h>
#include <link.h>

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "api/Grids.h"
#include "api/Threads.h"
#include "bindings/Guard.h"
#include "sarvendo.h"

namespace {

// ---- The host's structures, as PHP 5 lays them out ----

// A zval: the value (a long, or a text pointer and its int length), then the
// reference count and the type byte.
struct TZval {
  union {
    long Number;
    struct {
      char* Text;
      int Length;
    } String;
  } Value;
  uint32_t RefCount;
  uint8_t Type;
  uint8_t IsRef;
};

typedef void (*THandler)(int count, TZval* value, ...);

struct TFunctionEntry {
  const char* Name;
  THandler Handler;
  const void* ArgInfo;
  uint32_t ArgCount;
  uint32_t Flags;
};

const int EntrySize = 272;
const int EntryApiAt = 4, EntryDebugAt = 8, EntryZtsAt = 9, EntryWordAt = 160;
const int OldApi = 20040411, MiddleApi = 20050921;
const uint8_t TypeNull = 0, TypeLong = 1;

typedef int (*TParseParameters)(int count, ...);
typedef char* (*TStrndup)(const char* text, unsigned length, ...);
typedef void* (*TGetModule)();

// ---- Module-wide state ----

alignas(8) unsigned char ModuleEntry[EntrySize];
int32_t API = -1, ZTS = 0, DBG = 0, IS_STRING = 6;
TParseParameters ParseParameters = nullptr;
TStrndup Estrndup = nullptr;

const int MaxModules = 500, PoolSize = 100000, PoolFull = 49000;
char* Names[MaxModules];
void* Handles[MaxModules];
int MCount = 0;
char* TmpStr = nullptr;
char* Str = nullptr;

// ---- Results ----

void RetInt(TZval* value, long number) {
  value->Value.Number = number;
  value->Type = TypeLong;
}

// PHP gets its own copy from its allocator. A debug host's allocator takes
// the caller's file and line as well.
void RetString(TZval* value, const char* text) {
  if (!text) {
    value->Type = TypeNull;
    return;
  }
  const unsigned length = (unsigned)strlen(text);
  value->Value.String.Text = DBG ? Estrndup(text, length, __FILE__, __LINE__, nullptr, 0) : Estrndup(text, length);
  value->Value.String.Length = (int)length;
  value->Type = (uint8_t)IS_STRING;
}

// A registry text: copied for PHP, then freed.
void RetTaken(TZval* value, char* text) {
  RetString(value, text);
  free(text);
}

// ---- Arguments ----

// The thread context of a thread-safe host stands behind the return value:
// third of the further arguments, fourth on hosts that pass one more pointer.
void* Context(va_list rest) {
  const int skip = API > MiddleApi ? 3 : 2;
  for (int i = 0; i < skip; i++) va_arg(rest, void*);
  return va_arg(rest, void*);
}

// Numbers arrive as longs; a text as a pointer and a length, of which only
// the pointer is used (the length is taken as a long, wide enough for any
// host's length type).
template <class... A> bool Parse(int count, void* context, const char* spec, A... out) {
  const int result = ZTS ? ParseParameters(count, context, spec, out...) : ParseParameters(count, spec, out...);
  return result != -1;
}

typedef void (*TBody)(int count, TZval* value, void* context);

// Every handler is this frame around a body: it finds the context, and no
// exception thrown inside reaches the host.
template <TBody body> void Handler(int count, TZval* value, ...) {
  void* context = nullptr;
  if (ZTS) {
    va_list rest;
    va_start(rest, value);
    context = Context(rest);
    va_end(rest);
  }
  BindingGuard(0, [&] { return body(count, value, context), 0; });
}

const int ParseFailure = -15;

// ---- Bodies of the handlers ----

void CreateGridBody(int count, TZval* value, void* context) {
  char* doc[6] = {};
  long length[6] = {};
  if (!Parse(count, context, "ssssss", &doc[0], &length[0], &doc[1], &length[1], &doc[2], &length[2], &doc[3],
             &length[3], &doc[4], &length[4], &doc[5], &length[5]))
    return RetInt(value, ParseFailure);
  RetInt(value, Grids.CreateGrid(doc[0], doc[1], doc[2], doc[3], doc[4], doc[5]));
}

// The shapes shared by several functions: (index, text) and (index).
template <class R> using TIndexText = R (*)(int index, const char* text);
template <class R> using TIndexOnly = R (*)(int index);

template <TIndexText<int> call> void IndexTextInt(int count, TZval* value, void* context) {
  long index = 0, length = 0;
  char* text = nullptr;
  if (!Parse(count, context, "ls", &index, &text, &length)) return RetInt(value, ParseFailure);
  RetInt(value, call((int)index, text));
}

template <TIndexText<char*> call> void IndexTextString(int count, TZval* value, void* context) {
  long index = 0, length = 0;
  char* text = nullptr;
  if (!Parse(count, context, "ls", &index, &text, &length)) return RetInt(value, ParseFailure);
  RetTaken(value, call((int)index, text));
}

template <TIndexOnly<char*> call> void IndexString(int count, TZval* value, void* context) {
  long index = 0;
  if (!Parse(count, context, "l", &index)) return RetInt(value, ParseFailure);
  RetTaken(value, call((int)index));
}

int UpdateGridCall(int index, const char* xml) { return Grids.UpdateGrid(index, xml); }
int SaveCall(int index, const char* xml) { return Grids.Save(index, xml, 0); }
int SetDebugCall(int level, const char* text) { return SetDebugA(level, text); }
int SetLocaleCall(int index, const char* name) { return Grids.SetLocale(index, name); }
char* GetBodyCall(int index, const char* xml) { return Grids.GetBody(index, xml, nullptr); }
char* GetPageCall(int index, const char* xml) { return Grids.GetPage(index, xml, nullptr); }
char* GetExportCall(int index, const char* xml) { return Grids.GetExport(index, xml, nullptr); }
char* GetDataCall(int index) { return Grids.GetGridDataA(index, nullptr); }
char* GetLastIdCall(int index) { return Grids.GetLastIdA(index); }
char* GetGridSessionCall(int index) { return Grids.GetGridSessionA(index); }

void FindGridBody(int count, TZval* value, void* context) {
  char* xml = nullptr;
  long length = 0;
  if (!Parse(count, context, "s", &xml, &length)) return RetInt(value, ParseFailure);
  RetInt(value, Grids.FindGrid(xml));
}

void FindGridsStrBody(int count, TZval* value, void* context) {
  long max = 0, length = 0, idleSeconds = 0, unused = 0;
  char* xml = nullptr;
  if (!Parse(count, context, "lsll", &max, &xml, &length, &idleSeconds, &unused))
    return RetInt(value, ParseFailure);
  RetTaken(value, FindGridsStrA((int)max, xml, (int)idleSeconds, (int)unused));
}

void DeleteGridBody(int count, TZval* value, void* context) {
  long index = 0;
  if (!Parse(count, context, "l", &index)) return RetInt(value, ParseFailure);
  RetInt(value, Grids.DeleteGrid((int)index));
}

void ClearBody(int, TZval*, void*) { Grids.Clear(); }

// Frees the text it is given, as FreeString does: a script has no reason to
// call it, since every text it gets is already PHP's own copy.
void FreeStringBody(int count, TZval* value, void* context) {
  char* text = nullptr;
  long length = 0;
  if (!Parse(count, context, "s", &text, &length)) return RetInt(value, ParseFailure);
  free(text);
}

void SaveExBody(int count, TZval* value, void* context) {
  long index = 0, length = 0, flags = 0;
  char* xml = nullptr;
  if (!Parse(count, context, "lsl", &index, &xml, &length, &flags)) return RetInt(value, ParseFailure);
  RetInt(value, Grids.Save((int)index, xml, (int)flags));
}

void SaveToFileBody(int count, TZval* value, void* context) {
  long index = 0, length = 0, flags = 0;
  char* name = nullptr;
  if (!Parse(count, context, "lsl", &index, &name, &length, &flags)) return RetInt(value, ParseFailure);
  RetInt(value, Grids.SaveToFile((int)index, name, (int)flags));
}

void LastErrorBody(int, TZval* value, void*) { RetString(value, LastErrorA()); }

void GetChangesBody(int count, TZval* value, void* context) {
  long index = 0, flags = 0;
  if (!Parse(count, context, "ll", &index, &flags)) return RetInt(value, ParseFailure);
  RetTaken(value, Grids.GetChangesA((int)index, (int)flags));
}

void LockLibraryBody(int count, TZval* value, void* context) {
  char* name = nullptr;
  long length = 0;
  if (!Parse(count, context, "s", &name, &length)) return RetInt(value, ParseFailure);
  RetInt(value, LockLibraryA(name));
}

void UnlockLibraryBody(int, TZval* value, void*) { RetInt(value, UnlockLibrary()); }
void EnterReadBody(int, TZval*, void*) { RWCrit.EnterRead(); }
void LeaveReadBody(int, TZval*, void*) { RWCrit.LeaveRead(); }
void EnterWriteBody(int, TZval*, void*) { RWCrit.EnterWrite(); }
void LeaveWriteBody(int, TZval*, void*) { RWCrit.LeaveWrite(); }

void GetSessionBody(int count, TZval* value, void* context) {
  char* xml = nullptr;
  long length = 0;
  if (!Parse(count, context, "s", &xml, &length)) return RetInt(value, ParseFailure);
  RetTaken(value, Grids.GetSession(xml));
}

void GetCellsBody(int count, TZval* value, void* context) {
  long index = 0, flags = 0, rowLength = 0, columnLength = 0, formatLength = 0;
  char *row = nullptr, *column = nullptr, *format = nullptr;
  if (!Parse(count, context, "lssls", &index, &row, &rowLength, &column, &columnLength, &flags, &format,
             &formatLength))
    return RetInt(value, ParseFailure);
  RetTaken(value, Grids.GetCells((int)index, row, column, (int)flags, format, nullptr));
}

#define SV_FUNCTION(name, count, body) {"SV" name, Handler<body>, nullptr, count, 0}

TFunctionEntry Functions[] = {
    SV_FUNCTION("CreateGrid", 6, CreateGridBody),
    SV_FUNCTION("UpdateGrid", 2, IndexTextInt<UpdateGridCall>),
    SV_FUNCTION("FindGrid", 1, FindGridBody),
    SV_FUNCTION("FindGridsStr", 4, FindGridsStrBody),
    SV_FUNCTION("DeleteGrid", 1, DeleteGridBody),
    SV_FUNCTION("Clear", 0, ClearBody),
    SV_FUNCTION("FreeString", 1, FreeStringBody),
    SV_FUNCTION("GetBody", 2, IndexTextString<GetBodyCall>),
    SV_FUNCTION("GetPage", 2, IndexTextString<GetPageCall>),
    SV_FUNCTION("Save", 2, IndexTextInt<SaveCall>),
    SV_FUNCTION("SaveEx", 3, SaveExBody),
    SV_FUNCTION("SaveToFile", 3, SaveToFileBody),
    SV_FUNCTION("GetData", 1, IndexString<GetDataCall>),
    SV_FUNCTION("LastError", 0, LastErrorBody),
    SV_FUNCTION("GetLastId", 1, IndexString<GetLastIdCall>),
    SV_FUNCTION("GetChanges", 2, GetChangesBody),
    SV_FUNCTION("LockLibrary", 1, LockLibraryBody),
    SV_FUNCTION("UnlockLibrary", 0, UnlockLibraryBody),
    SV_FUNCTION("SetDebug", 2, IndexTextInt<SetDebugCall>),
    SV_FUNCTION("EnterRead", 0, EnterReadBody),
    SV_FUNCTION("LeaveRead", 0, LeaveReadBody),
    SV_FUNCTION("EnterWrite", 0, EnterWriteBody),
    SV_FUNCTION("LeaveWrite", 0, LeaveWriteBody),
    SV_FUNCTION("SetGridLocale", 2, IndexTextInt<SetLocaleCall>),
    SV_FUNCTION("GetExport", 2, IndexTextString<GetExportCall>),
    SV_FUNCTION("GetSession", 1, GetSessionBody),
    SV_FUNCTION("GetGridSession", 1, IndexString<GetGridSessionCall>),
    SV_FUNCTION("GetCells", 5, GetCellsBody),
    {nullptr, nullptr, nullptr, 0, 0},
};

// ---- Modules of the process, under the names of the calls they stand for ----

int AddModule(dl_phdr_info* info, size_t, void*) {
  const char* name = info->dlpi_name ? info->dlpi_name : "";
  // Whatever length a name has, it fits: the pool has room left beyond the
  // point where listing stops, and a longer name is cut to that room.
  const size_t room = (size_t)(TmpStr + PoolSize - Str) - 1;
  const size_t length = strnlen(name, room);
  memcpy(Str, name, length);
  Str[length] = 0;
  Names[MCount] = Str;
  Handles[MCount] = nullptr;
  MCount++;
  Str += length + 1;
  return MCount >= MaxModules || Str - TmpStr > PoolFull;
}

void FillModules() {
  MCount = 0;
  TmpStr = Str = (char*)malloc(PoolSize);
  if (TmpStr) dl_iterate_phdr(AddModule, nullptr);
}

void ClearModules() {
  for (int i = 0; i < MCount; i++)
    if (Handles[i]) dlclose(Handles[i]);
  MCount = 0;
  free(TmpStr);
  TmpStr = Str = nullptr;
}

void* GetModuleHandle(const char* needle) {
  for (int i = 0; i < MCount; i++) {
    if (!strstr(Names[i], needle)) continue;
    if (!Handles[i]) Handles[i] = dlopen(Names[i], RTLD_LAZY);
    return Handles[i];
  }
  return nullptr;
}

void* GetProcAddress(void* handle, const char* name) { return handle ? dlsym(handle, name) : nullptr; }

void* GetProcAddress2(void** handles, int position, const char* name) {
  if (!handles[position]) handles[position] = Handles[position] = dlopen(Names[position], RTLD_LAZY);
  return GetProcAddress(handles[position], name);
}

bool EnumProcessModules(void*, void** out, int, int* count) {
  memcpy(out, Handles, sizeof(Handles));
  *count = MCount;
  return true;
}

// ---- The entry ----

int32_t EntryApi() {
  int32_t api;
  memcpy(&api, ModuleEntry + EntryApiAt, sizeof(api));
  return api;
}

template <class T> void PutField(int offset, T value) { memcpy(ModuleEntry + offset, &value, sizeof(value)); }

// Whether a function lies in this library. Comparing with &get_module won't
// do: inside the library that address resolves to the host's first
// get_module, which may be another extension's.
bool IsOwn(void* function) {
  Dl_info own, other;
  return dladdr((void*)&ModuleEntry, &own) && dladdr(function, &other) && own.dli_fbase == other.dli_fbase;
}

// Takes the version data from another extension's entry. Our own get_module
// is skipped: it is what is running.
bool AskDonor(void* getModule) {
  if (!getModule || IsOwn(getModule)) return false;
  const unsigned char* donor = (const unsigned char*)((TGetModule)getModule)();
  if (!donor) return false;
  memcpy(ModuleEntry + EntryApiAt, donor + EntryApiAt, 4);
  ModuleEntry[EntryDebugAt] = donor[EntryDebugAt];
  ModuleEntry[EntryZtsAt] = donor[EntryZtsAt];
  memcpy(ModuleEntry + EntryWordAt, donor + EntryWordAt, 8);
  return true;
}

// Walks every module: the first with get_module gives the version, the first
// with zend_parse_parameters is the core.
void* SearchModules(void* core) {
  void* handles[MaxModules];
  int count = 0;
  EnumProcessModules(nullptr, handles, (int)sizeof(handles), &count);
  for (int i = 0; i < count; i++) {
    if (EntryApi() == -1 && AskDonor(GetProcAddress2(handles, i, "get_module")) && core) break;
    if (!core && GetProcAddress2(handles, i, "zend_parse_parameters")) {
      core = handles[i];
      if (EntryApi() != -1) break;
    }
  }
  return core;
}

// Name and function table stand further back the newer the host.
void PlaceNameAndTable(int32_t api) {
  const int nameAt = api <= OldApi ? 16 : api <= MiddleApi ? 24 : 32;
  PutField<const char*>(nameAt, "Sarvendo Module");
  PutField<TFunctionEntry*>(nameAt + 8, Functions);
}

}  // namespace

extern "C" SARVENDO_API void* get_module() {
  memset(ModuleEntry, 0, sizeof(ModuleEntry));
  PutField<uint16_t>(0, EntrySize);
  PutField<int32_t>(EntryApiAt, -1);
  FillModules();
  void* core = GetModuleHandle("php5ts.dll");
  if (!core) core = GetModuleHandle("php5.dll");
  void* donor = GetModuleHandle("php_mysql.dll");
  if (donor) AskDonor(GetProcAddress(donor, "get_module"));
  if (!core || EntryApi() == -1) core = SearchModules(core);
  if (!core) {
    ClearModules();
    return ModuleEntry;
  }
  ParseParameters = (TParseParameters)GetProcAddress(core, "zend_parse_parameters");
  Estrndup = (TStrndup)GetProcAddress(core, "_estrndup");
  ClearModules();
  if (!ParseParameters || !Estrndup) return ModuleEntry;
  const int32_t api = EntryApi();
  PlaceNameAndTable(api);
  IS_STRING = api > MiddleApi ? 6 : 3;
  ZTS = ModuleEntry[EntryZtsAt];
  DBG = ModuleEntry[EntryDebugAt];
  API = api;
  return ModuleEntry;
}
