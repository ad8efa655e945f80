// The Node.js host: a Node-API addon over the exported 8-bit functions,
// built as its own module (sarvendo.node), never into the shared library.
//
// Contract: JavaScript strings go in and come out as UTF-8; each text block
// of the engine is copied into a JavaScript string and freed at once; a null
// result is null and a negative code a plain number. Only a call with wrong
// JavaScript types throws: a TypeError that names the function. The long
// operations also have a promise form (name + "Async") that runs on Node's
// worker pool with its own copies of the arguments; the registry's locks make
// calls from several threads safe, and engine failures resolve, never reject.
#include <node_api.h>

#include <climits>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "sarvendo.h"

namespace {

// One argument as the engine takes it: a number, or a text that may be null.
struct TArg {
  int Number = 0;
  bool IsNull = true;
  std::string Text;
  const char* Str() const { return IsNull ? nullptr : Text.c_str(); }
};

const int MaxArgs = 6;
using TArgs = std::vector<TArg>;

struct TFreeBlock {
  void operator()(char* text) const { FreeStringA(text); }
};
using TBlock = std::unique_ptr<char, TFreeBlock>;

// What an operation gives back, before it becomes a JavaScript value.
struct TResult {
  enum TKind { Nothing, Code, Text, List } Kind = Nothing;
  int Value = 0;
  TBlock Block;
  std::vector<int> Indexes;
};

TResult Code(int value) {
  TResult result;
  result.Kind = TResult::Code;
  result.Value = value;
  return result;
}

TResult Text(char* block) {
  TResult result;
  result.Kind = TResult::Text;
  result.Block.reset(block);
  return result;
}

TResult List(std::vector<int> indexes) {
  TResult result;
  result.Kind = TResult::List;
  result.Indexes = std::move(indexes);
  return result;
}

// The indices of the grids that match a filter document, or its code. The
// second walk is bounded by the first count, so a grid made in between by
// another thread can't overrun the array; it is just left out.
TResult FoundGrids(const TArgs& a) {
  const char* xml = a[0].Str();
  int count = FindGridsA(nullptr, a[2].Number, xml, a[1].Number, 0);
  if (count <= 0) return count < 0 ? Code(count) : List({});
  std::vector<int> found((size_t)count);
  count = FindGridsA(found.data(), count, xml, a[1].Number, 0);
  if (count < 0) return Code(count);
  found.resize((size_t)count);
  return List(std::move(found));
}

// The registry writes every live index whatever room it is given, so the
// array gets room to spare for grids made by other threads between the count
// and the walk.
TResult LiveGrids(const TArgs&) {
  const int Spare = 1024;
  std::vector<int> live((size_t)GetIndexes(nullptr, 0) + Spare);
  const int count = GetIndexes(live.data(), (int)live.size());
  live.resize((size_t)count < live.size() ? (size_t)count : live.size());
  return List(std::move(live));
}

// Argument kinds, one letter each: i grid index, n integer (may be left out:
// 0), s string, t string, null or left out (null).
struct TOperation {
  const char* Name;
  const char* Kinds;
  TResult (*Run)(const TArgs&);
  bool HasAsync;
};

const TOperation Operations[] = {
    {"createGrid", "tttttt",
     [](const TArgs& a) {
       return Code(CreateGridA(a[0].Str(), a[1].Str(), a[2].Str(), a[3].Str(), a[4].Str(), a[5].Str()));
     },
     true},
    {"updateGrid", "is", [](const TArgs& a) { return Code(UpdateGridA(a[0].Number, a[1].Str())); }, false},
    {"findGrid", "s", [](const TArgs& a) { return Code(FindGridA(a[0].Str())); }, false},
    {"findGrids", "snn", FoundGrids, false},
    {"deleteGrid", "i", [](const TArgs& a) { return Code(DeleteGrid(a[0].Number)); }, false},
    {"clear", "",
     [](const TArgs&) {
       Clear();
       return TResult();
     },
     false},
    {"getBody", "it", [](const TArgs& a) { return Text(GetBodyA(a[0].Number, a[1].Str())); }, true},
    {"getPage", "it", [](const TArgs& a) { return Text(GetPageA(a[0].Number, a[1].Str())); }, true},
    {"save", "is", [](const TArgs& a) { return Code(SaveA(a[0].Number, a[1].Str())); }, true},
    {"saveEx", "isn", [](const TArgs& a) { return Code(SaveExA(a[0].Number, a[1].Str(), a[2].Number)); }, false},
    {"saveToFile", "isn",
     [](const TArgs& a) { return Code(SaveToFileA(a[0].Number, a[1].Str(), a[2].Number)); }, true},
    {"getData", "i", [](const TArgs& a) { return Text(GetDataA(a[0].Number)); }, true},
    {"getIndexes", "", LiveGrids, false},
    {"getLastId", "i", [](const TArgs& a) { return Text(GetLastIdA(a[0].Number)); }, false},
    {"getChanges", "in", [](const TArgs& a) { return Text(GetChangesA(a[0].Number, a[1].Number)); }, false},
    {"setGridLocale", "is", [](const TArgs& a) { return Code(SetGridLocaleA(a[0].Number, a[1].Str())); }, false},
    {"getExport", "it", [](const TArgs& a) { return Text(GetExportA(a[0].Number, a[1].Str())); }, true},
    {"getSession", "s", [](const TArgs& a) { return Text(GetSessionA(a[0].Str())); }, false},
    {"getGridSession", "i", [](const TArgs& a) { return Text(GetGridSessionA(a[0].Number)); }, false},
    // JavaScript keeps the wide order (row, column, flags, format); the 8-bit
    // function takes flags before the column.
    {"getCells", "ittnt",
     [](const TArgs& a) {
       return Text(GetCellsA(a[0].Number, a[1].Str(), a[3].Number, a[2].Str(), a[4].Str()));
     },
     false},
    {"saveExportXlsx", "its",
     [](const TArgs& a) { return Code(SaveExportXlsxA(a[0].Number, a[1].Str(), a[2].Str())); }, true},
};

const size_t OperationCount = sizeof(Operations) / sizeof(Operations[0]);

// What a JavaScript function is bound to: an operation and its form.
struct TBinding {
  const TOperation* Op;
  bool Async;
};

std::string Message(const TBinding& binding, const std::string& text) {
  return std::string(binding.Op->Name) + (binding.Async ? "Async" : "") + ": " + text;
}

// An index that is no int32 names no grid, rather than wrapping round to one.
int IndexOf(double value) {
  if (!(value >= INT_MIN && value <= INT_MAX) || std::trunc(value) != value) return -1;
  return (int)value;
}

// Reads one argument by its kind; false for a wrong JavaScript type.
bool ReadArg(napi_env env, char kind, napi_value value, TArg& arg) {
  napi_valuetype type = napi_undefined;
  if (value) napi_typeof(env, value, &type);
  if (kind == 'i' || kind == 'n') {
    if (type == napi_undefined && kind == 'n') return true;
    if (type != napi_number) return false;
    double number = 0;
    napi_get_value_double(env, value, &number);
    if (kind == 'i') arg.Number = IndexOf(number);
    else napi_get_value_int32(env, value, &arg.Number);
    return true;
  }
  if (type == napi_string) {
    size_t length = 0;
    napi_get_value_string_utf8(env, value, nullptr, 0, &length);
    arg.Text.resize(length);
    napi_get_value_string_utf8(env, value, &arg.Text[0], length + 1, &length);
    arg.IsNull = false;
    return true;
  }
  return kind == 't' && (type == napi_undefined || type == napi_null);
}

// The arguments by the operation's kinds, or the text of the TypeError.
std::string ReadArgs(napi_env env, const TBinding& binding, size_t argc, napi_value* argv, TArgs& args) {
  const std::string kinds = binding.Op->Kinds;
  if (argc > kinds.size()) return Message(binding, "takes at most " + std::to_string(kinds.size()) + " arguments");
  args.assign((size_t)MaxArgs, TArg());
  for (size_t k = 0; k < kinds.size(); k++) {
    if (ReadArg(env, kinds[k], k < argc ? argv[k] : nullptr, args[k])) continue;
    const char kind = kinds[k];
    const char* expected = kind == 'i' || kind == 'n' ? "a number" : kind == 's' ? "a string" : "a string or null";
    return Message(binding, "argument " + std::to_string(k + 1) + " must be " + expected);
  }
  return "";
}

napi_value Undefined(napi_env env) {
  napi_value value = nullptr;
  napi_get_undefined(env, &value);
  return value;
}

// The JavaScript value of a result; null (with an exception pending) when
// Node refuses it, as for a text beyond its string limit.
napi_value ToValue(napi_env env, const TResult& result) {
  napi_value value = nullptr;
  napi_status status = napi_ok;
  switch (result.Kind) {
    case TResult::Nothing:
      return Undefined(env);
    case TResult::Code:
      status = napi_create_int32(env, result.Value, &value);
      break;
    case TResult::Text:
      status = result.Block ? napi_create_string_utf8(env, result.Block.get(), NAPI_AUTO_LENGTH, &value)
                            : napi_get_null(env, &value);
      break;
    case TResult::List:
      status = napi_create_array_with_length(env, result.Indexes.size(), &value);
      for (size_t k = 0; status == napi_ok && k < result.Indexes.size(); k++) {
        napi_value item = nullptr;
        status = napi_create_int32(env, result.Indexes[k], &item);
        if (status == napi_ok) status = napi_set_element(env, value, (uint32_t)k, item);
      }
      break;
  }
  if (status == napi_ok) return value;
  bool pending = false;
  napi_is_exception_pending(env, &pending);
  if (!pending) napi_throw_error(env, nullptr, "sarvendo: the result can't be made a JavaScript value");
  return nullptr;
}

// One promise-form call: its arguments, kept until the worker has run it.
struct TWork {
  const TBinding* Binding;
  TArgs Args;
  TResult Result;
  bool OutOfMemory = false;
  napi_deferred Deferred = nullptr;
  napi_async_work Work = nullptr;
};

void Execute(napi_env, void* data) {
  TWork* work = (TWork*)data;
  try {
    work->Result = work->Binding->Op->Run(work->Args);
  } catch (...) {
    work->OutOfMemory = true;
  }
}

napi_value NewError(napi_env env, const std::string& text, bool typeError) {
  napi_value message = nullptr, error = nullptr;
  napi_create_string_utf8(env, text.c_str(), text.size(), &message);
  if (typeError) napi_create_type_error(env, nullptr, message, &error);
  else napi_create_error(env, nullptr, message, &error);
  return error;
}

void Complete(napi_env env, napi_status status, void* data) {
  std::unique_ptr<TWork> work((TWork*)data);
  napi_delete_async_work(env, work->Work);
  // Cancelled only as the environment goes away: nobody waits for the promise.
  if (status == napi_cancelled) return;
  if (work->OutOfMemory) {
    napi_reject_deferred(env, work->Deferred, NewError(env, Message(*work->Binding, "out of memory"), false));
    return;
  }
  napi_value value = ToValue(env, work->Result);
  if (value) {
    napi_resolve_deferred(env, work->Deferred, value);
    return;
  }
  napi_value error = nullptr;
  napi_get_and_clear_last_exception(env, &error);
  napi_reject_deferred(env, work->Deferred, error);
}

// Starts a promise-form call; a type error rejects the promise.
napi_value Queue(napi_env env, const TBinding& binding, TArgs&& args, const std::string& typeError) {
  napi_value promise = nullptr, name = nullptr;
  std::unique_ptr<TWork> work(new TWork{&binding, std::move(args), TResult()});
  if (napi_create_promise(env, &work->Deferred, &promise) != napi_ok) return nullptr;
  if (!typeError.empty()) {
    napi_reject_deferred(env, work->Deferred, NewError(env, typeError, true));
    return promise;
  }
  napi_create_string_utf8(env, binding.Op->Name, NAPI_AUTO_LENGTH, &name);
  if (napi_create_async_work(env, nullptr, name, Execute, Complete, work.get(), &work->Work) != napi_ok ||
      napi_queue_async_work(env, work->Work) != napi_ok) {
    if (work->Work) napi_delete_async_work(env, work->Work);
    napi_reject_deferred(env, work->Deferred, NewError(env, Message(binding, "can't be queued"), false));
    return promise;
  }
  work.release();
  return promise;
}

// Every exported JavaScript function enters here; no C++ exception leaves.
napi_value Call(napi_env env, napi_callback_info info) {
  size_t argc = MaxArgs + 1;
  napi_value argv[MaxArgs + 1] = {};
  void* data = nullptr;
  napi_get_cb_info(env, info, &argc, argv, nullptr, &data);
  const TBinding& binding = *(const TBinding*)data;
  try {
    TArgs args;
    const std::string typeError = ReadArgs(env, binding, argc, argv, args);
    if (binding.Async) return Queue(env, binding, std::move(args), typeError);
    if (!typeError.empty()) {
      napi_throw_type_error(env, nullptr, typeError.c_str());
      return nullptr;
    }
    return ToValue(env, binding.Op->Run(args));
  } catch (...) {
    napi_throw_error(env, nullptr, Message(binding, "out of memory").c_str());
    return nullptr;
  }
}

std::vector<TBinding> MakeBindings() {
  std::vector<TBinding> bindings;
  for (size_t k = 0; k < OperationCount; k++) {
    bindings.push_back({&Operations[k], false});
    if (Operations[k].HasAsync) bindings.push_back({&Operations[k], true});
  }
  return bindings;
}

// Shared by every Node environment of the process (worker threads too), as
// the registry is.
const std::vector<TBinding> Bindings = MakeBindings();

// The functions on the module's exports, each bound to its operation.
napi_value Define(napi_env env, napi_value exports) {
  std::vector<std::string> names;
  names.reserve(Bindings.size());
  std::vector<napi_property_descriptor> properties;
  for (const TBinding& binding : Bindings) {
    names.push_back(std::string(binding.Op->Name) + (binding.Async ? "Async" : ""));
    napi_property_descriptor property = {};
    property.utf8name = names.back().c_str();
    property.method = Call;
    property.attributes = napi_enumerable;
    property.data = (void*)&binding;
    properties.push_back(property);
  }
  napi_define_properties(env, exports, properties.size(), properties.data());
  return exports;
}

}  // namespace

NAPI_MODULE_INIT() {
  try {
    return Define(env, exports);
  } catch (...) {
    napi_throw_error(env, nullptr, "sarvendo: out of memory");
    return nullptr;
  }
}
