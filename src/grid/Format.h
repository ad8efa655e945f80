// TDataFormat: the display text of a cell, and the tools that make it.
//
// GetStringFormat reads the column's Type, Format, Enum and Related attributes
// on the row (falling through to its default) and returns what the browser
// shows. The other operations are its tools and are also used by grouping and
// export: items of separated lists, the case/prefix/suffix text format, dates
// by letter masks, the solar calendar and a wildcard compare.
// Results are record text, scratch from the tree's ring (valid for a few
// further calls) or the shared empty string: never null, never to be freed.
// The level has no fields, so any node may be cast to it.
#pragma once
#include "tree/Data.h"

class TDataFormat : public TData {
public:
  // Room of a date text; longer ones are cut here.
  static const int DateLength = 128;
  // Room of the attribute name suffix "Enum<a>_<b>..." of an Enum with Related.
  static const int EnumSuffixLength = 512;

  // Text of the cell at name index col of column name. col -1: looked up from
  // name (none: empty text); name null: taken from col.
  const wchar_t* GetStringFormat(const wchar_t* name, int col);
  // text with a format ";case;prefix;suffix" (own separator first; case 1
  // lower, 2 upper): a new scratch block, or text itself for no format.
  const wchar_t* FormatString(const wchar_t* text, const wchar_t* format);
  // A date value (milliseconds since 1970 UTC, 0 for none) by a letter mask or
  // by a one-letter name of the tree's Format element; at most DateLength
  // characters.
  const wchar_t* DateToString(double value, const wchar_t* format);
  // Gregorian date to the solar calendar of the Hirji setting; months and days
  // from 1; the outputs may be the variables the inputs came from.
  static void GregorianToHirji(int year, int month, int day, int& outYear, int& outMonth, int& outDay);

  // Item index (from 0) of a list separated by sep; empty text if missing.
  const wchar_t* GetArrayItem(const wchar_t* list, int index, wchar_t sep);
  // Item of a list whose first character is its separator.
  const wchar_t* GetArrayItemFirst(const wchar_t* list, int index);
  // Item of a comma-separated list.
  const wchar_t* GetArrayItemComma(const wchar_t* list, int index);
  // Position of the whole entry item in a list separated by sep, or -1.
  static int GetArrayIndex(const wchar_t* list, const wchar_t* item, wchar_t sep);
  // Whole text against a pattern with * (any run) and ? (one character).
  static bool WCmp(const wchar_t* pattern, const wchar_t* text);

private:
  const wchar_t* FormatBool(const wchar_t* name, int col);
  const wchar_t* FormatInt(int col);
  const wchar_t* FormatFloat(int col);
  const wchar_t* FormatDate(const wchar_t* name, int col);
  const wchar_t* FormatEnum(const wchar_t* name, int col);
  const wchar_t* FormatRadio(const wchar_t* name, int col);
  const wchar_t* FormatText(const wchar_t* name, int col);
  // Index of the list of an Enum cell: <name>Enum, or with Related the list
  // named by the values of the related columns; -1 for none.
  int GetEnumList(const wchar_t* name);
  // "Enum<a>_<b>..." from the Related list at index related; false if it
  // doesn't fit EnumSuffixLength.
  bool GetEnumSuffix(int related, wchar_t* suffix);
  // Lists given as bytes, which may lie unaligned in a record: item of a list
  // with its own separator first, and item of a list separated by sep.
  const wchar_t* GetItemFirst(const unsigned char* list, int index);
  const wchar_t* CopyItem(const unsigned char* list, int index, wchar_t sep);
  // FormatString on texts given as bytes, which may lie unaligned in a record.
  const wchar_t* ApplyFormat(const unsigned char* text, const unsigned char* format);
  // Scratch of length + 1 cells that doesn't overlap the two source texts,
  // which may themselves lie in the ring.
  wchar_t* GetTmpApart(int length, const void* a, int aLength, const void* b, int bLength);
};
