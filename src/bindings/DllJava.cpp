// The native methods of the Java class Sarvendo.Server: each converts its
// Java strings to wide text, calls the registry, frees what it made and
// hands the result back as a new Java string. No state lives here.
#include <jni.h>

#include <cstdlib>
#include <cwchar>

#include "api/Args.h"
#include "api/Grids.h"
#include "api/Threads.h"
#include "bindings/Guard.h"
#include "sarvendo.h"

namespace {

// A path argument: separators become "/" and "segment/.." pairs collapse.
// Only a ".." standing between two separators collapses; one at the very end
// stays. With no separator before the segment, the backing up stops at the
// start, so "x/../y" gives "/y".
void NormalisePath(wchar_t* text) {
  if (text[0] == L'<') return;  // XML text, not a file name
  for (long i = 0; text[i]; i++) {
    if (text[i] != L'\\' && text[i] != L'/') continue;
    text[i] = L'/';
    const wchar_t* after = text + i + 1;
    if (after[0] != L'.' || after[1] != L'.' || (after[2] != L'\\' && after[2] != L'/')) continue;
    long to = i - 1;
    while (to > 0 && text[to] != L'/') to--;
    if (to < 0) to = 0;
    // Moves the rest, from the second separator on, with its terminator.
    wmemmove(text + to, after + 2, wcslen(after + 2) + 1);
    i = to - 1;  // the separator now at "to" is looked at again
  }
}

// New heap text from a Java string (the adapter frees it), or null for a
// null string. Each 16-bit unit is one character: pairs aren't joined.
wchar_t* JavaGet(JNIEnv* env, jstring text, bool path) {
  if (!text) return nullptr;
  const jchar* units = env->GetStringChars(text, nullptr);
  if (!units) return nullptr;
  const jsize length = env->GetStringLength(text);
  wchar_t* wide = (wchar_t*)malloc(((size_t)length + 1) * sizeof(wchar_t));
  if (wide) {
    for (jsize i = 0; i < length; i++) wide[i] = units[i];
    wide[length] = 0;
  }
  env->ReleaseStringChars(text, units);
  if (wide && path) NormalisePath(wide);
  return wide;
}

// A Java string of the first length characters, each cut to 16 bits: Java
// can't hold a character beyond U+FFFF in one unit.
jstring JavaGet(JNIEnv* env, const wchar_t* text, int length) {
  const int StackSize = 1024;
  jchar stack[StackSize] = {};
  if (length < 0) length = 0;
  jchar* units = length < StackSize ? stack : (jchar*)malloc((size_t)length * sizeof(jchar));
  if (!units) return nullptr;
  for (int i = 0; i < length; i++) units[i] = (jchar)(text[i] & 0xFFFF);
  jstring result = env->NewString(units, length);
  if (units != stack) free(units);
  return result;
}

// Owns the wide form of one Java string argument for the length of a call.
class TJavaArg {
public:
  TJavaArg(JNIEnv* env, jstring text, bool path) : Text(JavaGet(env, text, path)) {}
  ~TJavaArg() { free(Text); }
  TJavaArg(const TJavaArg&) = delete;
  TJavaArg& operator=(const TJavaArg&) = delete;
  operator const wchar_t*() const { return Text; }

private:
  wchar_t* Text;
};

// Copies a registry text into a Java string and frees it; null stays null.
// A negative length means the operation reported none: the text ends at NUL.
jstring Take(JNIEnv* env, wchar_t* text, int length = -1) {
  if (!text) return nullptr;
  jstring result = JavaGet(env, text, length < 0 ? (int)wcslen(text) : length);
  free(text);
  return result;
}

// An int[] pinned for one call and released with mode 0, which copies the
// elements back, so the results reach Java. Length is the room it gives.
class TJavaInts {
public:
  TJavaInts(JNIEnv* env, jintArray array)
      : Env(env), Array(array), Items(array ? env->GetIntArrayElements(array, nullptr) : nullptr),
        Room(Items ? env->GetArrayLength(array) : 0) {}
  ~TJavaInts() {
    if (Items) Env->ReleaseIntArrayElements(Array, Items, 0);
  }
  TJavaInts(const TJavaInts&) = delete;
  TJavaInts& operator=(const TJavaInts&) = delete;
  int* Out() const { return Room > 0 ? (int*)Items : nullptr; }
  int Length() const { return Room; }

private:
  JNIEnv* Env;
  jintArray Array;
  jint* Items;
  int Room;
};

const jstring NoString = nullptr;

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_Sarvendo_Server_CreateGrid(JNIEnv* env, jobject, jstring doc1, jstring doc2,
                                                       jstring doc3, jstring doc4, jstring doc5, jstring doc6) {
  return BindingGuard(-1, [&] {
    return Grids.CreateGrid(TJavaArg(env, doc1, true), TJavaArg(env, doc2, true), TJavaArg(env, doc3, true),
                            TJavaArg(env, doc4, true), TJavaArg(env, doc5, false), TJavaArg(env, doc6, false));
  });
}

JNIEXPORT jint JNICALL Java_Sarvendo_Server_UpdateGrid(JNIEnv* env, jobject, jint index, jstring xml) {
  return BindingGuard(-1, [&] { return Grids.UpdateGrid(index, TJavaArg(env, xml, false)); });
}

JNIEXPORT jint JNICALL Java_Sarvendo_Server_FindGrid(JNIEnv* env, jobject, jstring xml) {
  return BindingGuard(-3, [&] { return Grids.FindGrid(TJavaArg(env, xml, false)); });
}

// The array's length bounds what is stored: max beyond it, or no max, is cut
// to it; an empty array only counts.
JNIEXPORT jint JNICALL Java_Sarvendo_Server_FindGrids(JNIEnv* env, jobject, jintArray out, jint max, jstring xml,
                                                      jint idleSeconds) {
  return BindingGuard(-3, [&] {
    TJavaArg text(env, xml, false);
    TJavaInts found(env, out);
    const int limit = found.Out() && (max <= 0 || max > found.Length()) ? found.Length() : max;
    return Grids.FindGrids(found.Out(), limit, text, idleSeconds);
  });
}

JNIEXPORT jint JNICALL Java_Sarvendo_Server_DeleteGrid(JNIEnv*, jobject, jint index) {
  return BindingGuard(-1, [&] { return Grids.DeleteGrid(index); });
}

JNIEXPORT jint JNICALL Java_Sarvendo_Server_Clear(JNIEnv*, jobject) {
  Grids.Clear();
  return 0;
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetBody(JNIEnv* env, jobject, jint index, jstring xml) {
  return BindingGuard(NoString, [&] {
    int length = -1;
    return Take(env, Grids.GetBody(index, TJavaArg(env, xml, false), &length), length);
  });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetPage(JNIEnv* env, jobject, jint index, jstring xml) {
  return BindingGuard(NoString, [&] {
    int length = -1;
    return Take(env, Grids.GetPage(index, TJavaArg(env, xml, false), &length), length);
  });
}

JNIEXPORT jint JNICALL Java_Sarvendo_Server_Save(JNIEnv* env, jobject, jint index, jstring xml) {
  return BindingGuard(-1, [&] { return Grids.Save(index, TJavaArg(env, xml, false), 0); });
}

JNIEXPORT jint JNICALL Java_Sarvendo_Server_SaveEx(JNIEnv* env, jobject, jint index, jstring xml, jint flags) {
  return BindingGuard(-1, [&] { return Grids.Save(index, TJavaArg(env, xml, false), flags); });
}

JNIEXPORT jint JNICALL Java_Sarvendo_Server_SaveToFile(JNIEnv* env, jobject, jint index, jstring fileName,
                                                       jint flags) {
  return BindingGuard(-1, [&] { return Grids.SaveToFile(index, TJavaArg(env, fileName, true), flags); });
}

// The path goes as Java's text: the engine writes its name in UTF-8.
JNIEXPORT jint JNICALL Java_Sarvendo_Server_SaveExportXlsx(JNIEnv* env, jobject, jint index, jstring xml,
                                                           jstring path) {
  return BindingGuard(-1, [&] {
    return Grids.SaveExportXlsx(index, TJavaArg(env, xml, false), TJavaArg(env, path, false));
  });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetData(JNIEnv* env, jobject, jint index) {
  return BindingGuard(NoString, [&] {
    int length = -1;
    return Take(env, Grids.GetGridData(index, &length), length);
  });
}

// Every live grid's index goes into the array as far as it has room; the
// result counts them all, so a host can ask again with a larger array.
JNIEXPORT jint JNICALL Java_Sarvendo_Server_GetIndexes(JNIEnv* env, jobject, jintArray out, jint) {
  return BindingGuard(0, [&] {
    TJavaInts indexes(env, out);
    return Grids.ListIndexes(indexes.Out(), indexes.Length());
  });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_LastError(JNIEnv*, jobject) { return nullptr; }

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetLastId(JNIEnv* env, jobject, jint index) {
  return BindingGuard(NoString, [&] { return Take(env, Grids.GetLastId(index)); });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetChanges(JNIEnv* env, jobject, jint index, jint flags) {
  return BindingGuard(NoString, [&] { return Take(env, Grids.GetChanges(index, flags)); });
}

// The text is converted (as a path) and then ignored, as SetDebug ignores it.
JNIEXPORT jint JNICALL Java_Sarvendo_Server_SetDebug(JNIEnv* env, jobject, jint level, jstring text) {
  return BindingGuard(-1, [&] { return SetDebug(level, TJavaArg(env, text, true)); });
}

// Nothing of meaning is returned: 0, so a Java side declaring int gets no garbage.
JNIEXPORT jint JNICALL Java_Sarvendo_Server_EnterRead(JNIEnv*, jobject) { return RWCrit.EnterRead(), 0; }
JNIEXPORT jint JNICALL Java_Sarvendo_Server_LeaveRead(JNIEnv*, jobject) { return RWCrit.LeaveRead(), 0; }
JNIEXPORT jint JNICALL Java_Sarvendo_Server_EnterWrite(JNIEnv*, jobject) { return RWCrit.EnterWrite(), 0; }
JNIEXPORT jint JNICALL Java_Sarvendo_Server_LeaveWrite(JNIEnv*, jobject) { return RWCrit.LeaveWrite(), 0; }

// The locale name goes through the path conversion: a "\" in it becomes "/".
JNIEXPORT jint JNICALL Java_Sarvendo_Server_SetGridLocale(JNIEnv* env, jobject, jint index, jstring name) {
  return BindingGuard(-1, [&] { return SetGridLocale(index, TJavaArg(env, name, true)); });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetExport(JNIEnv* env, jobject, jint index, jstring xml) {
  return BindingGuard(NoString, [&] {
    int length = -1;
    return Take(env, Grids.GetExport(index, TJavaArg(env, xml, false), &length), length);
  });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetSession(JNIEnv* env, jobject, jstring xml) {
  return BindingGuard(NoString, [&] { return Take(env, Grids.GetSession(TJavaArg(env, xml, false))); });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetGridSession(JNIEnv* env, jobject, jint index) {
  return BindingGuard(NoString, [&] { return Take(env, Grids.GetGridSession(index)); });
}

JNIEXPORT jstring JNICALL Java_Sarvendo_Server_GetCells(JNIEnv* env, jobject, jint index, jstring rowId,
                                                        jstring column, jint flags, jstring format) {
  return BindingGuard(NoString, [&] {
    int length = -1;
    wchar_t* cells = Grids.GetCells(index, TJavaArg(env, rowId, false), TJavaArg(env, column, false), flags,
                                    TJavaArg(env, format, false), &length);
    return Take(env, cells, length);
  });
}

}  // extern "C"
