#include "grid/Format.h"

#include <climits>
#include <cstring>
#include <ctime>
#include <cwctype>

#include "tree/Node.h"
#include "tree/Tree.h"

namespace {

// Room for a number written as text (ToString needs well under 64 cells).
const int NumberRoom = 128;

// ---- texts and lists ----

// A text read cell by cell. Values inside a record are packed without
// alignment, so a string there is read through memcpy, in place, without a
// scratch copy that could come round onto texts still in use.
class TText {
public:
  explicit TText(const wchar_t* text) : Bytes((const unsigned char*)text) {}
  explicit TText(const unsigned char* bytes) : Bytes(bytes) {}
  wchar_t operator[](int i) const {
    wchar_t c;
    memcpy(&c, Bytes + (size_t)i * sizeof c, sizeof c);
    return c;
  }
  TText From(int i) const { return TText(Bytes + (size_t)i * sizeof(wchar_t)); }

private:
  const unsigned char* Bytes;
};

int LengthOf(TText text) {
  int n = 0;
  while (text[n]) n++;
  return n;
}

// Item index of a list separated by sep: its start and length; false if the
// list ends first. The terminator is tested before every step, so no walk
// leaves the list.
bool FindItem(TText list, int index, wchar_t sep, int& start, int& length) {
  start = length = 0;
  if (index < 0) return false;
  for (; index > 0; start++) {
    if (!list[start]) return false;
    if (list[start] == sep) index--;
  }
  while (list[start + length] && list[start + length] != sep) length++;
  return true;
}

// A value of a record as text, in place; a number is written to `number`
// (NumberRoom cells). Absent: the empty text.
const unsigned char* ReadBytes(TData* record, int index, wchar_t* number) {
  unsigned char* p = nullptr;
  switch (record->GetType(index, p)) {
    case TString: return p;
    case TByte:
    case TInt: TData::IntToString(record->GetInt(index), number); return (const unsigned char*)number;
    case TDouble:
      TData::ToString(record->GetDouble(index), number, record->Tree ? record->Tree->Precision : 10000);
      return (const unsigned char*)number;
  }
  return (const unsigned char*)EmptyString;
}

// ---- cell types ----

enum TCellType { CBool, CInt, CFloat, CDate, CEnum, CRadio, CText, COther };

// Only the leading characters count, so "Integer" is Int; case-sensitive.
TCellType TypeOf(const wchar_t* type) {
  static const struct {
    const wchar_t* Prefix;
    size_t Length;
    TCellType Type;
  } Types[] = {{L"Bool", 4, CBool}, {L"Int", 3, CInt},   {L"Float", 5, CFloat}, {L"Date", 4, CDate},
               {L"Enum", 4, CEnum}, {L"Radi", 4, CRadio}, {L"Text", 4, CText},   {L"Lines", 5, CText}};
  for (const auto& t : Types)
    if (!wcsncmp(type, t.Prefix, t.Length)) return t.Type;
  return COther;
}

// The case number of a text format, read from the characters behind the
// separator as wcstol reads them. Only 1 and 2 mean something, so the value
// stops growing above 2.
long ReadCase(TText format) {
  int i = 1;
  while (iswspace((wint_t)format[i])) i++;
  const bool negative = format[i] == L'-';
  if (format[i] == L'-' || format[i] == L'+') i++;
  long value = 0;
  for (; format[i] >= L'0' && format[i] <= L'9'; i++)
    if (value <= 2) value = value * 10 + (format[i] - L'0');
  return negative ? -value : value;
}

wchar_t ChangeCase(wchar_t c, long mode) {
  if (mode == 1) return (wchar_t)towlower((wint_t)c);
  if (mode == 2) return (wchar_t)towupper((wint_t)c);
  return c;
}

// ---- dates ----

const int CGregMonths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const int CHirjiMonths[12] = {31, 31, 31, 31, 31, 31, 30, 30, 30, 30, 30, 29};
const wchar_t DefaultMask[] = L"M/d/yyyy";

// Attribute name of the Format element as text (see ReadBytes).
TText ReadText(TData* element, const wchar_t* name, wchar_t* number) {
  return TText(ReadBytes(element, element->GetIndex(name, 0), number));
}

// The mask of a date: two or more characters are the mask itself; null or
// empty means "g"; a single character names a mask of the Format element, and
// "M/d/yyyy" stands in when that names no mask of two or more characters.
TText ChooseMask(TData* element, const wchar_t* format, wchar_t* number) {
  if (!format || !*format) format = L"g";
  if (format[1]) return TText(format);
  if (element) {
    const wchar_t letter[2] = {format[0], 0};
    TText named = ReadText(element, letter, number);
    if (named[0] && named[1]) return named;
  }
  return TText(DefaultMask);
}

struct TDateParts {
  int Year, Month, Day, WeekDay, Hour, Minute, Second;
};

// The value's calendar fields in UTC, month and day from 1; false for a value
// outside the C library's range.
bool SplitDate(double value, bool hirji, TDateParts& parts) {
  // Fractions of a second go: truncated to whole milliseconds, then seconds,
  // both toward zero. Beyond 2^63 milliseconds the truncation is undefined.
  if (!(value > -9.2e18 && value < 9.2e18)) return false;
  const time_t seconds = (time_t)((long long)value / 1000);
  struct tm t;
  if (!gmtime_r(&seconds, &t)) return false;  // re-entrant: grids format on many threads
  parts = {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_wday, t.tm_hour, t.tm_min, t.tm_sec};
  if (hirji) TDataFormat::GregorianToHirji(parts.Year, parts.Month, parts.Day, parts.Year, parts.Month, parts.Day);
  return true;
}

// Longest token of a mask letter; 0 for a character that is copied.
int LongestToken(wchar_t c) {
  switch (c) {
    case L'd': case L'M': case L'y': return 4;
    case L'H': case L'h': case L'm': case L's': case L't': return 2;
  }
  return 0;
}

// Length of the run of the letter at mask[i], counted up to max.
int RunLength(TText mask, int i, int max) {
  int n = 1;
  while (n < max && mask[i + n] == mask[i]) n++;
  return n;
}

// A date text being written, cut at DateLength characters.
class TDateText {
public:
  void Put(wchar_t c) {
    if (Length < TDataFormat::DateLength) Cells[Length++] = c;
  }
  void Put(TText text) {
    for (int i = 0; text[i] && Length < TDataFormat::DateLength; i++) Put(text[i]);
  }
  // Leading zero below 10 when padded.
  void PutNumber(int value, bool pad) {
    wchar_t digits[16];
    if (pad && value < 10) Put(L'0');
    TData::IntToString(value, digits);
    Put(TText(digits));
  }
  // Item index of a comma list; a missing item writes nothing.
  void PutItem(TText list, int index) {
    int start, length;
    if (!FindItem(list, index, L',', start, length)) return;
    for (int i = 0; i < length && Length < TDataFormat::DateLength; i++) Put(list[start + i]);
  }
  const wchar_t* CopyTo(TData* record) const {
    wchar_t* block = record->GetTmp(TDataFormat::DateLength);
    wmemcpy(block, Cells, Length);
    block[Length] = 0;
    return block;
  }

private:
  wchar_t Cells[TDataFormat::DateLength];
  int Length = 0;
};

// One pass over a mask for one date. Texts of the language come from the
// Format element, or without one from the defaults.
class TDateMask {
public:
  TDateMask(const TDateParts& parts, TData* element) : Parts(parts), Element(element) {}
  void Write(TText mask);
  const wchar_t* CopyTo(TData* record) const { return Out.CopyTo(record); }

private:
  int WriteQuoted(TText mask, int i);
  void WriteSeparator(const wchar_t* name, wchar_t standard);
  void WriteToken(wchar_t letter, int count);
  void WriteName(const wchar_t* list, int index, int number);
  void WriteDesignator(bool whole);

  const TDateParts& Parts;
  TData* Element;
  TDateText Out;
};

void TDateMask::Write(TText mask) {
  for (int i = 0; mask[i];) {
    const wchar_t c = mask[i];
    switch (c) {
      case L'"':
      case L'\'': i = WriteQuoted(mask, i + 1); break;
      case L'\\':
        if (mask[i + 1]) Out.Put(mask[++i]);
        i++;
        break;
      case L'%': i++; break;  // lets a one-letter format be written as a mask
      case L'/': WriteSeparator(L"DateSeparator", L'/'); i++; break;
      case L':': WriteSeparator(L"TimeSeparator", L':'); i++; break;
      default: {
        const int longest = LongestToken(c);
        if (!longest) {
          Out.Put(c);
          i++;
          break;
        }
        // A longer run is eaten from its left: the longest token's worth of
        // letters writes nothing, and the rest starts a new token.
        const int run = RunLength(mask, i, longest + 1);
        if (run <= longest) WriteToken(c, run);
        i += run <= longest ? run : longest;
      }
    }
  }
}

// Copies up to the quote that mask[i - 1] opened and steps over it; a quote
// that is never closed ends at the end of the mask.
int TDateMask::WriteQuoted(TText mask, int i) {
  const wchar_t quote = mask[i - 1];
  for (; mask[i] && mask[i] != quote; i++) Out.Put(mask[i]);
  return mask[i] ? i + 1 : i;
}

// The first character of the element's separator. With a Format element that
// lacks it (or has it empty) nothing is written: the defaults stand only for
// a missing element, as the missing name lists give empty items.
void TDateMask::WriteSeparator(const wchar_t* name, wchar_t standard) {
  if (!Element) {
    Out.Put(standard);
    return;
  }
  wchar_t number[NumberRoom];
  const wchar_t c = ReadText(Element, name, number)[0];
  if (c) Out.Put(c);
}

void TDateMask::WriteToken(wchar_t letter, int count) {
  switch (letter) {
    case L'd':
      if (count <= 2) Out.PutNumber(Parts.Day, count == 2);
      else WriteName(count == 3 ? L"ShortDayNames" : L"LongDayNames", Parts.WeekDay, Parts.WeekDay);
      break;
    case L'M':
      if (count <= 2) Out.PutNumber(Parts.Month, count == 2);
      else WriteName(count == 3 ? L"ShortMonthNames" : L"LongMonthNames", Parts.Month - 1, Parts.Month);
      break;
    case L'y':
      if (count == 4) Out.PutNumber(Parts.Year, false);
      else if (count < 3) Out.PutNumber(Parts.Year % 100, count == 2);
      break;  // yyy writes nothing
    case L'H': Out.PutNumber(Parts.Hour, count == 2); break;
    case L'h': Out.PutNumber(Parts.Hour % 12, count == 2); break;  // noon and midnight are 0, by design
    case L'm': Out.PutNumber(Parts.Minute, count == 2); break;
    case L's': Out.PutNumber(Parts.Second, count == 2); break;
    case L't': WriteDesignator(count == 2); break;
  }
}

// Item index of a comma list of names; without a Format element the number.
void TDateMask::WriteName(const wchar_t* list, int index, int number) {
  if (!Element) {
    Out.PutNumber(number, false);
    return;
  }
  wchar_t buffer[NumberRoom];
  Out.PutItem(ReadText(Element, list, buffer), index);
}

// Inverted on purpose, and kept: hours above 11 take the AM designator.
void TDateMask::WriteDesignator(bool whole) {
  const bool am = Parts.Hour > 11;
  wchar_t number[NumberRoom];
  const TText text = Element ? ReadText(Element, am ? L"AMDesignator" : L"PMDesignator", number)
                             : TText(am ? L"AM" : L"PM");
  if (whole) Out.Put(text);
  else if (text[0]) Out.Put(text[0]);
}

}  // namespace

// ---- cell text ----

const wchar_t* TDataFormat::GetStringFormat(const wchar_t* name, int col) {
  if (col == -1) {
    if (!name) return EmptyString;
    col = GetIndex(name, 0);
    if (col == -1) return EmptyString;
  }
  // An index that names nothing leaves name null: no type, the plain string.
  if (!name && Tree) name = Tree->GetName(col, 0);
  switch (TypeOf(GetString(name, L"Type"))) {
    case CBool: return FormatBool(name, col);
    case CInt: return FormatInt(col);
    case CFloat: return FormatFloat(col);
    case CDate: return FormatDate(name, col);
    case CEnum: return FormatEnum(name, col);
    case CRadio: return FormatRadio(name, col);
    case CText: return FormatText(name, col);
    case COther: break;
  }
  return GetString(col);
}

// Formats, lists and texts of the column are read in place (ReadBytes): a
// scratch copy of one could come round onto another, and a copy longer than
// the ring sits in the tree's one big block, which the next such request
// reuses.

const wchar_t* TDataFormat::FormatBool(const wchar_t* name, int col) {
  const int value = GetInt(col);
  wchar_t number[NumberRoom];
  const unsigned char* format = ReadBytes(this, GetIndex(name, L"Format", 0), number);
  if (!TText(format)[0]) return value ? L"1" : L"0";
  return GetItemFirst(format, value);
}

const wchar_t* TDataFormat::FormatInt(int col) {
  const int value = GetInt(col);
  wchar_t* block = GetTmp(127);
  IntToString(value, block);
  return block;
}

const wchar_t* TDataFormat::FormatFloat(int col) {
  const double value = GetDouble(col);
  wchar_t* block = GetTmp(127);
  ToString(value, block, Tree ? Tree->Precision : 10000);
  return block;
}

const wchar_t* TDataFormat::FormatDate(const wchar_t* name, int col) {
  const double value = GetDouble(col);
  return DateToString(value, GetString(name, L"Format"));
}

const wchar_t* TDataFormat::FormatEnum(const wchar_t* name, int col) {
  const int value = GetInt(col);
  wchar_t number[NumberRoom];
  return GetItemFirst(ReadBytes(this, GetEnumList(name), number), value);
}

// The texts of the values begin at item 6 of the format.
const wchar_t* TDataFormat::FormatRadio(const wchar_t* name, int col) {
  const int value = GetInt(col);
  // An item beyond the int range is beyond every list.
  const int item = value > INT_MAX - 6 ? -1 : value + 6;
  wchar_t number[NumberRoom];
  return GetItemFirst(ReadBytes(this, GetIndex(name, L"Format", 0), number), item);
}

const wchar_t* TDataFormat::FormatText(const wchar_t* name, int col) {
  wchar_t textNumber[NumberRoom], formatNumber[NumberRoom];
  const unsigned char* format = ReadBytes(this, GetIndex(name, L"Format", 0), formatNumber);
  if (!TText(format)[0]) return GetString(col);
  return ApplyFormat(ReadBytes(this, col, textNumber), format);
}

int TDataFormat::GetEnumList(const wchar_t* name) {
  const int related = GetIndex(name, L"Related", 0);
  if (!*GetString(related)) return GetIndex(name, L"Enum", 0);
  wchar_t suffix[EnumSuffixLength + 1];
  if (!GetEnumSuffix(related, suffix)) return -1;
  return GetIndex(name, suffix, 0);
}

bool TDataFormat::GetEnumSuffix(int related, wchar_t* suffix) {
  if (!Tree) return false;
  wchar_t* out = wcscpy(suffix, L"Enum") + 4;
  for (int item = 0;; item++) {
    // The list is read again for each column, since reading a value may take
    // the scratch that holds it.
    const wchar_t* list = GetString(related);
    int start, length;
    if (!FindItem(TText(list), item, L',', start, length)) return true;
    const int index = Tree->Names.GetIndexN(list + start, length, 0);
    // '_' and up to 11 characters of a number, and the terminator.
    if (out - suffix + 13 > EnumSuffixLength + 1) return false;
    if (item) *out++ = L'_';
    out = IntToString(GetInt(index), out);
  }
}

// ---- text format ----

const wchar_t* TDataFormat::FormatString(const wchar_t* text, const wchar_t* format) {
  if (!text) text = EmptyString;
  if (!format || !*format) return text;
  return ApplyFormat((const unsigned char*)text, (const unsigned char*)format);
}

const wchar_t* TDataFormat::ApplyFormat(const unsigned char* textBytes, const unsigned char* formatBytes) {
  const TText text(textBytes), format(formatBytes);
  const wchar_t sep = format[0];
  const long mode = ReadCase(format);
  const TText items = format.From(1);
  int prefix, prefixLength, suffix, suffixLength;
  FindItem(items, 1, sep, prefix, prefixLength);
  FindItem(items, 2, sep, suffix, suffixLength);
  const int textLength = LengthOf(text);
  wchar_t* block = GetTmpApart(prefixLength + textLength + suffixLength, textBytes, textLength, formatBytes,
                               LengthOf(format));
  wchar_t* out = block;
  for (int i = 0; i < prefixLength; i++) *out++ = items[prefix + i];
  for (int i = 0; i < textLength; i++) *out++ = ChangeCase(text[i], mode);
  for (int i = 0; i < suffixLength; i++) *out++ = items[suffix + i];
  *out = 0;
  return block;
}

wchar_t* TDataFormat::GetTmpApart(int length, const void* a, int aLength, const void* b, int bLength) {
  // After a wrap the next block starts at the ring's start again, where a
  // source may lie. Asking for the longest of the three makes the second
  // block start behind any source there.
  int room = length;
  if (aLength > room) room = aLength;
  if (bLength > room) room = bLength;
  wchar_t* block = GetTmp(room);
  if (block == a || block == b) block = GetTmp(room);
  return block;
}

// ---- lists ----

const wchar_t* TDataFormat::GetArrayItem(const wchar_t* list, int index, wchar_t sep) {
  return list ? CopyItem((const unsigned char*)list, index, sep) : EmptyString;
}

const wchar_t* TDataFormat::GetArrayItemFirst(const wchar_t* list, int index) {
  return list ? GetItemFirst((const unsigned char*)list, index) : EmptyString;
}

const wchar_t* TDataFormat::GetItemFirst(const unsigned char* list, int index) {
  const wchar_t sep = TText(list)[0];
  return sep ? CopyItem(list + sizeof(wchar_t), index, sep) : EmptyString;
}

const wchar_t* TDataFormat::CopyItem(const unsigned char* bytes, int index, wchar_t sep) {
  const TText list(bytes);
  int start, length;
  if (!FindItem(list, index, sep, start, length) || !length) return EmptyString;
  wchar_t* block = GetTmp(length);
  // Forward, as a list in scratch lies at or behind the block, or apart.
  for (int i = 0; i < length; i++) block[i] = list[start + i];
  block[length] = 0;
  return block;
}

const wchar_t* TDataFormat::GetArrayItemComma(const wchar_t* list, int index) {
  return GetArrayItem(list, index, L',');
}

int TDataFormat::GetArrayIndex(const wchar_t* list, const wchar_t* item, wchar_t sep) {
  if (!item || !*item || !list) return -1;
  const size_t n = wcslen(item);
  for (int index = 0;; index++) {
    if (!wcsncmp(list, item, n) && (list[n] == sep || !list[n])) return index;
    while (*list && *list != sep) list++;
    if (!*list) return -1;
    list++;
  }
}

bool TDataFormat::WCmp(const wchar_t* pattern, const wchar_t* text) {
  if (!pattern) pattern = EmptyString;
  if (!text) text = EmptyString;
  // Backtracking goes to the last * only: behind it the text restarts one
  // character further on than at the previous attempt.
  const wchar_t* star = nullptr;
  const wchar_t* retry = nullptr;
  while (*text) {
    if (*pattern == L'*') {
      if (!*++pattern) return true;
      star = pattern;
      retry = text;
    } else if (*pattern == L'?' || *pattern == *text) {
      pattern++;
      text++;
    } else if (star) {
      pattern = star;
      text = ++retry;
    } else {
      return false;
    }
  }
  while (*pattern == L'*') pattern++;
  return !*pattern;
}

// ---- dates ----

const wchar_t* TDataFormat::DateToString(double value, const wchar_t* format) {
  if (value == 0) return EmptyString;
  TDateParts parts;
  if (!SplitDate(value, Tree && Tree->Hirji, parts)) return EmptyString;
  TData* element = Tree ? Tree->Format : nullptr;
  wchar_t number[NumberRoom];
  TDateMask date(parts, element);
  date.Write(ChooseMask(element, format, number));
  // Scratch is taken only now: until here the mask, which may lie there, is read.
  return date.CopyTo(this);
}

void TDataFormat::GregorianToHirji(int year, int month, int day, int& outYear, int& outMonth, int& outDay) {
  // 64 bits give the same quotients (toward zero) as 32 bits wherever those
  // don't overflow, and no overflow at all.
  const long long gy = (long long)year - 1600, gm = (long long)month - 1, gd = (long long)day - 1;
  long long days = 365 * gy + (gy + 3) / 4 - (gy + 99) / 100 + (gy + 399) / 400;
  for (int i = 0; i < gm && i < 12; i++) days += CGregMonths[i];
  if (gm > 1 && ((gy % 4 == 0 && gy % 100 != 0) || gy % 400 == 0)) days++;
  days += gd;
  long long j = days - 79;
  const long long n = j / 12053;
  j %= 12053;
  long long y = 979 + 33 * n + 4 * (j / 1461);
  j %= 1461;
  if (j > 365) {
    y += (j - 1) / 365;
    j = (j - 1) % 365;
  }
  int i = 0;
  for (; i < 11 && j >= CHirjiMonths[i]; i++) j -= CHirjiMonths[i];
  outYear = (int)y;
  outMonth = i + 1;
  outDay = (int)(j + 1);
}
