// TNodeXml: reading a node from the grid's XML dialect and writing it back.
//
// The reader is a single-pass scanner, not an XML parser: values are used in
// place unless they hold entities, each element's record is built once at its
// exact size, numbers are recognised by their shape. Nesting deeper than
// MaxDepth levels fails the document, which keeps every later walk of the tree
// (writer, copies, counts) within the stack.
// Writer flags: 1 filtered rows too, 2 all children at every level, 4 add _0F
// with the flags byte, 64 children of the top element (dropped below it).
#pragma once
#include "tree/Node.h"

class TNodeXml : public TNode {
public:
  static const int MaxDepth = 512;

  // Reads one element into this node; returns where reading stopped, or null.
  const wchar_t* SetXml(const wchar_t* text, int depth);
  // The same from UTF-8, decoded as it is read (as ToUnicode would widen it);
  // returns where reading stopped, or null. With discard, text is a buffer of
  // the caller's that nothing else reads: pages the reading has left behind
  // are given back to the system as it goes (they then read as zeros).
  const char* SetXml(const char* text, int depth, bool discard = false);
  // Decodes entities from source up to NUL or end; returns the output's end
  // (no terminator written).
  static wchar_t* XmlToString(const wchar_t* source, wchar_t* target, const wchar_t* end);

  // A new heap text: prefix, this node, postfix. Null on failure.
  wchar_t* GetXml(int* length, const wchar_t* prefix, const wchar_t* postfix, int flags);
  wchar_t* GetXml(wchar_t* cursor, wchar_t*& start, wchar_t*& end, int flags, int depth);
  int GetXmlLength(int flags);
  static bool Realloc(wchar_t*& cursor, wchar_t*& start, wchar_t*& end, int need);
  static wchar_t* StringToXml(const wchar_t* source, wchar_t* target);

private:
  struct TScan;
  // One scanned value for slot Slot: Length wide characters, or, when
  // Narrow, Length ASCII bytes that each stand for themselves.
  struct TEntry {
    const void* Text;
    int Length;
    int Slot;
    bool Narrow;
  };
  // Builds the record in one step from the scanned entries. point: whether
  // the locale's decimal point is '.', -1 until a double of the document
  // asks.
  void SetRow(const TEntry* entries, int count, int& point);
  // Reads one element from p (a wide pointer or a UTF-8 cursor) and moves p
  // behind what it read; false on failure.
  template <class P>
  bool Scan(TScan& scan, P& p, int depth);
  // The value area and slot table at the sizes set, from the tree's store
  // when it gives them.
  void TakeBlocks();
  bool ChildrenGoOut(int flags) const;
  bool WriteValue(int meta, const unsigned char* value, wchar_t*& cursor, wchar_t*& start, wchar_t*& end);
};
