// The extension for PHP 8 hosts, built against the host's own headers: the
// same SV functions as the run-time module of the library, with the same
// argument order and results, served by the one engine in libsarvendo.so
// through its exported 8-bit functions. Integers come back as PHP ints,
// texts as PHP strings (copies; the engine's block is freed at once) or null,
// and arguments that can't be parsed give the int -15, never an exception.
extern "C" {
#include "php.h"
}

#include "sarvendo.h"

namespace {

const zend_long ParseFailure = -15;

// Quiet: a bad argument is the int -15 to the script, not an exception.
#define SV_PARSE(spec, ...)                                                                          \
  if (zend_parse_parameters_ex(ZEND_PARSE_PARAMS_QUIET, ZEND_NUM_ARGS(), spec, __VA_ARGS__) == FAILURE) \
  RETURN_LONG(ParseFailure)

// A text of the engine as a PHP string, or null; the engine's block is freed.
void ReturnText(zval* result, char* text) {
  if (!text) {
    ZVAL_NULL(result);
    return;
  }
  ZVAL_STRING(result, text);
  FreeStringA(text);
}

}  // namespace

PHP_FUNCTION(SVCreateGrid) {
  char* doc[6];
  size_t length[6];
  SV_PARSE("ssssss", &doc[0], &length[0], &doc[1], &length[1], &doc[2], &length[2], &doc[3], &length[3], &doc[4],
           &length[4], &doc[5], &length[5]);
  RETURN_LONG(CreateGridA(doc[0], doc[1], doc[2], doc[3], doc[4], doc[5]));
}

PHP_FUNCTION(SVUpdateGrid) {
  zend_long index;
  char* xml;
  size_t length;
  SV_PARSE("ls", &index, &xml, &length);
  RETURN_LONG(UpdateGridA((int)index, xml));
}

PHP_FUNCTION(SVFindGrid) {
  char* xml;
  size_t length;
  SV_PARSE("s", &xml, &length);
  RETURN_LONG(FindGridA(xml));
}

PHP_FUNCTION(SVFindGridsStr) {
  zend_long max, idleSeconds, unused;
  char* xml;
  size_t length;
  SV_PARSE("lsll", &max, &xml, &length, &idleSeconds, &unused);
  ReturnText(return_value, FindGridsStrA((int)max, xml, (int)idleSeconds, (int)unused));
}

PHP_FUNCTION(SVDeleteGrid) {
  zend_long index;
  SV_PARSE("l", &index);
  RETURN_LONG(DeleteGrid((int)index));
}

PHP_FUNCTION(SVClear) {
  Clear();
  RETURN_NULL();
}

// A script's strings are PHP's own and every text it gets is a copy: there
// is nothing for it to free, so the text is only checked.
PHP_FUNCTION(SVFreeString) {
  char* text;
  size_t length;
  SV_PARSE("s", &text, &length);
  RETURN_NULL();
}

PHP_FUNCTION(SVGetBody) {
  zend_long index;
  char* xml;
  size_t length;
  SV_PARSE("ls", &index, &xml, &length);
  ReturnText(return_value, GetBodyA((int)index, xml));
}

PHP_FUNCTION(SVGetPage) {
  zend_long index;
  char* xml;
  size_t length;
  SV_PARSE("ls", &index, &xml, &length);
  ReturnText(return_value, GetPageA((int)index, xml));
}

PHP_FUNCTION(SVSave) {
  zend_long index;
  char* xml;
  size_t length;
  SV_PARSE("ls", &index, &xml, &length);
  RETURN_LONG(SaveA((int)index, xml));
}

PHP_FUNCTION(SVSaveEx) {
  zend_long index, flags;
  char* xml;
  size_t length;
  SV_PARSE("lsl", &index, &xml, &length, &flags);
  RETURN_LONG(SaveExA((int)index, xml, (int)flags));
}

PHP_FUNCTION(SVSaveToFile) {
  zend_long index, flags;
  char* name;
  size_t length;
  SV_PARSE("lsl", &index, &name, &length, &flags);
  RETURN_LONG(SaveToFileA((int)index, name, (int)flags));
}

PHP_FUNCTION(SVSaveExportXlsx) {
  zend_long index;
  char *xml, *path;
  size_t xmlLength, pathLength;
  SV_PARSE("lss", &index, &xml, &xmlLength, &path, &pathLength);
  RETURN_LONG(SaveExportXlsxA((int)index, xml, path));
}

PHP_FUNCTION(SVGetData) {
  zend_long index;
  SV_PARSE("l", &index);
  ReturnText(return_value, GetDataA((int)index));
}

PHP_FUNCTION(SVLastError) { ReturnText(return_value, LastErrorA()); }

PHP_FUNCTION(SVGetLastId) {
  zend_long index;
  SV_PARSE("l", &index);
  ReturnText(return_value, GetLastIdA((int)index));
}

PHP_FUNCTION(SVGetChanges) {
  zend_long index, flags;
  SV_PARSE("ll", &index, &flags);
  ReturnText(return_value, GetChangesA((int)index, (int)flags));
}

PHP_FUNCTION(SVLockLibrary) {
  char* name;
  size_t length;
  SV_PARSE("s", &name, &length);
  RETURN_LONG(LockLibraryA(name));
}

PHP_FUNCTION(SVUnlockLibrary) { RETURN_LONG(UnlockLibrary()); }

PHP_FUNCTION(SVSetDebug) {
  zend_long level;
  char* text;
  size_t length;
  SV_PARSE("ls", &level, &text, &length);
  RETURN_LONG(SetDebugA((int)level, text));
}

PHP_FUNCTION(SVEnterRead) { EnterRead(); }
PHP_FUNCTION(SVLeaveRead) { LeaveRead(); }
PHP_FUNCTION(SVEnterWrite) { EnterWrite(); }
PHP_FUNCTION(SVLeaveWrite) { LeaveWrite(); }

PHP_FUNCTION(SVSetGridLocale) {
  zend_long index;
  char* name;
  size_t length;
  SV_PARSE("ls", &index, &name, &length);
  RETURN_LONG(SetGridLocaleA((int)index, name));
}

PHP_FUNCTION(SVGetExport) {
  zend_long index;
  char* xml;
  size_t length;
  SV_PARSE("ls", &index, &xml, &length);
  ReturnText(return_value, GetExportA((int)index, xml));
}

PHP_FUNCTION(SVGetSession) {
  char* xml;
  size_t length;
  SV_PARSE("s", &xml, &length);
  ReturnText(return_value, GetSessionA(xml));
}

PHP_FUNCTION(SVGetGridSession) {
  zend_long index;
  SV_PARSE("l", &index);
  ReturnText(return_value, GetGridSessionA((int)index));
}

// Index, row id, column, flags, format: the 8-bit C form takes flags before
// the column, so the two change places here.
PHP_FUNCTION(SVGetCells) {
  zend_long index, flags;
  char *row, *column, *format;
  size_t rowLength, columnLength, formatLength;
  SV_PARSE("lssls", &index, &row, &rowLength, &column, &columnLength, &flags, &format, &formatLength);
  ReturnText(return_value, GetCellsA((int)index, row, (int)flags, column, format));
}

namespace {

// Every argument is optional and untyped to the engine: the functions parse
// their own and answer a bad call with -15 rather than an error.
ZEND_BEGIN_ARG_INFO_EX(NoArgs, 0, 0, 0)
ZEND_END_ARG_INFO()
ZEND_BEGIN_ARG_INFO_EX(OneArg, 0, 0, 0)
ZEND_ARG_INFO(0, a)
ZEND_END_ARG_INFO()
ZEND_BEGIN_ARG_INFO_EX(TwoArgs, 0, 0, 0)
ZEND_ARG_INFO(0, a)
ZEND_ARG_INFO(0, b)
ZEND_END_ARG_INFO()
ZEND_BEGIN_ARG_INFO_EX(ThreeArgs, 0, 0, 0)
ZEND_ARG_INFO(0, a)
ZEND_ARG_INFO(0, b)
ZEND_ARG_INFO(0, c)
ZEND_END_ARG_INFO()
ZEND_BEGIN_ARG_INFO_EX(FourArgs, 0, 0, 0)
ZEND_ARG_INFO(0, a)
ZEND_ARG_INFO(0, b)
ZEND_ARG_INFO(0, c)
ZEND_ARG_INFO(0, d)
ZEND_END_ARG_INFO()
ZEND_BEGIN_ARG_INFO_EX(FiveArgs, 0, 0, 0)
ZEND_ARG_INFO(0, a)
ZEND_ARG_INFO(0, b)
ZEND_ARG_INFO(0, c)
ZEND_ARG_INFO(0, d)
ZEND_ARG_INFO(0, e)
ZEND_END_ARG_INFO()
ZEND_BEGIN_ARG_INFO_EX(SixArgs, 0, 0, 0)
ZEND_ARG_INFO(0, a)
ZEND_ARG_INFO(0, b)
ZEND_ARG_INFO(0, c)
ZEND_ARG_INFO(0, d)
ZEND_ARG_INFO(0, e)
ZEND_ARG_INFO(0, f)
ZEND_END_ARG_INFO()

const zend_function_entry Functions[] = {
    PHP_FE(SVCreateGrid, SixArgs) PHP_FE(SVUpdateGrid, TwoArgs) PHP_FE(SVFindGrid, OneArg)
    PHP_FE(SVFindGridsStr, FourArgs) PHP_FE(SVDeleteGrid, OneArg) PHP_FE(SVClear, NoArgs)
    PHP_FE(SVFreeString, OneArg) PHP_FE(SVGetBody, TwoArgs) PHP_FE(SVGetPage, TwoArgs)
    PHP_FE(SVSave, TwoArgs) PHP_FE(SVSaveEx, ThreeArgs) PHP_FE(SVSaveToFile, ThreeArgs)
    PHP_FE(SVGetData, OneArg) PHP_FE(SVLastError, NoArgs) PHP_FE(SVGetLastId, OneArg)
    PHP_FE(SVGetChanges, TwoArgs) PHP_FE(SVLockLibrary, OneArg) PHP_FE(SVUnlockLibrary, NoArgs)
    PHP_FE(SVSetDebug, TwoArgs) PHP_FE(SVEnterRead, NoArgs) PHP_FE(SVLeaveRead, NoArgs)
    PHP_FE(SVEnterWrite, NoArgs) PHP_FE(SVLeaveWrite, NoArgs) PHP_FE(SVSetGridLocale, TwoArgs)
    PHP_FE(SVGetExport, TwoArgs) PHP_FE(SVGetSession, OneArg) PHP_FE(SVGetGridSession, OneArg)
    PHP_FE(SVGetCells, FiveArgs) PHP_FE(SVSaveExportXlsx, ThreeArgs) PHP_FE_END};

zend_module_entry SarvendoModule = {STANDARD_MODULE_HEADER, "sarvendo", Functions, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, "1.0", STANDARD_MODULE_PROPERTIES};

}  // namespace

extern "C" ZEND_DLEXPORT zend_module_entry* get_module() { return &SarvendoModule; }
