#include "tree/Xml.h"
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>
#include <langinfo.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include "tree/System.h"
#include "tree/Tree.h"
#include "tree/UTF.h"

// ======================= reading =======================

namespace {
inline bool IsBlank(wchar_t c) { return c && (unsigned)c < 33; }

// UTF-8 read as it is scanned, one character at a time, by the same rules as
// ToUnicode: no validation, reversed sequences, and a sequence cut short by
// the terminator (or one that decodes to 0) ends the text. So a document
// scans to the very same characters as its widened copy would.
class TUtf8Cursor {
public:
  explicit TUtf8Cursor(const char* s) : S((const unsigned char*)s) { Decode(); }
  wchar_t operator*() const { return C; }
  TUtf8Cursor& operator++() {
    S += N;
    Decode();
    return *this;
  }
  TUtf8Cursor operator++(int) {
    TUtf8Cursor before = *this;
    ++*this;
    return before;
  }
  // At the end the cursor stays put, so stepping past it is harmless.
  TUtf8Cursor operator+(int k) const {
    TUtf8Cursor c = *this;
    while (k-- > 0) ++c;
    return c;
  }
  wchar_t operator[](int k) const { return *(*this + k); }
  const char* Bytes() const { return (const char*)S; }
  // Moves on while keep holds for the character here; keep(0) must be false.
  // Runs of ASCII bytes are tested as they stand, without decoding: each of
  // them is one character of its own value.
  template <class F>
  void SkipWhile(F keep) {
    while (keep(C)) {
      S += N;
      unsigned b = *S;
      while (b - 1 < 0x7F && keep((wchar_t)b)) b = *++S;
      Decode();
    }
  }
  // Whether the text from here up to the next stop byte is plain: ASCII
  // bytes without '&', each a character of its own value. Then n is their
  // count. plain marks the bytes that may stand in the run (never 0 or
  // stop); the run is taken to go on from n bytes on.
  bool PlainRun(const bool* plain, unsigned char stop, size_t& n) const {
    const unsigned char* q = S + n;
    while (plain[*q]) q++;
    n = q - S;
    return *q == stop;
  }
  // The byte n bytes on from here.
  unsigned char ByteAt(size_t n) const { return S[n]; }
  // Moves on to a later byte that starts a character.
  void MoveTo(const char* at) {
    S = (const unsigned char*)at;
    Decode();
  }
  // Moves behind a plain run of n bytes (PlainRun).
  void SkipPlain(size_t n) {
    S += n;
    Decode();
  }
  // Writes the characters up to end as wide text; returns the output's end.
  wchar_t* Widen(const TUtf8Cursor& end, wchar_t* out) const {
    const unsigned char* s = S;
    while (s < end.S && *s < 0x80) *out++ = *s++;
    if (s == end.S) return out;
    for (TUtf8Cursor c((const char*)s); c.S < end.S; ++c) *out++ = *c;
    return out;
  }
  // Bytes from here to a later cursor: an upper bound of its characters.
  size_t BytesTo(const TUtf8Cursor& end) const { return end.S - S; }

private:
  const unsigned char* S;
  wchar_t C;
  int N;

  // ASCII, nearly every character of a document, is decoded in line.
  void Decode() {
    unsigned b = S[0];
    if (b < 0x80) {
      C = (wchar_t)b;
      N = b ? 1 : 0;
      return;
    }
    DecodeSequence(b);
  }
  // Out of line, so that the ASCII case stays small enough to inline.
  __attribute__((noinline)) void DecodeSequence(unsigned b) {
    unsigned b2, b3;
    N = 0;
    C = 0;
    if ((b & 0x40) == 0) {
      // Reversed: continuation bytes first, the lead byte last.
      if (!(b2 = S[1])) return;
      if (b2 & 0x40) {
        C = (wchar_t)((b2 & 31) * 64 + (b & 63));
        N = 2;
      } else {
        if (!(b3 = S[2])) return;
        C = (wchar_t)((b3 << 12 & 0xFFFF) + (b2 & 63) * 64 + (b & 63));
        N = 3;
      }
    } else if (b & 0x20) {
      if (!(b2 = S[1]) || !(b3 = S[2])) return;
      C = (wchar_t)((b << 12 & 0xFFFF) + (b2 & 63) * 64 + (b3 & 63));
      N = 3;
    } else {
      if (!(b2 = S[1])) return;
      C = (wchar_t)((b & 31) * 64 + (b2 & 63));
      N = 2;
    }
    if (!C) N = 0;
  }
};

// Moves p on while keep holds; keep(0) must be false.
template <class F>
inline void SkipWhile(const wchar_t*& p, F keep) {
  while (keep(*p)) p++;
}
template <class F>
inline void SkipWhile(TUtf8Cursor& p, F keep) {
  p.SkipWhile(keep);
}

template <class P>
inline P SkipBlanks(P p) {
  SkipWhile(p, IsBlank);
  return p;
}

// Skips "<!...>" or "<?...>" from its '<' and returns true with p behind it;
// false at the end of the text.
template <class P>
bool SkipDeclaration(P& p) {
  if (p[1] == L'!' && p[2] == L'-') {
    // A comment: "<!-" is enough to open one; it ends at "-->", the two
    // characters before the '>' being the ones last seen.
    wchar_t before1 = p[2], before2 = p[1];
    for (P q = p + 3; *q; q++) {
      if (*q == L'>' && before1 == L'-' && before2 == L'-') {
        p = q + 1;
        return true;
      }
      before2 = before1;
      before1 = *q;
    }
    return false;
  }
  int depth = 1;
  for (P q = p + 1; *q; q++) {
    if (*q == L'<') depth++;
    else if (*q == L'>' && --depth == 0) {
      p = q + 1;
      return true;
    }
  }
  return false;
}

// Decodes a document that stands entity-encoded as a whole: only &lt; &gt;
// &amp; are known there. Null for any other entity.
wchar_t* DecodeEscapedDocument(const wchar_t* text) {
  size_t length = wcslen(text);
  wchar_t* copy = (wchar_t*)malloc((length + 1) * sizeof(wchar_t));
  wchar_t* out = copy;
  for (const wchar_t* p = text; *p;) {
    if (*p != L'&') { *out++ = *p++; continue; }
    if (!wcsncmp(p, L"&lt;", 4)) { *out++ = L'<'; p += 4; }
    else if (!wcsncmp(p, L"&gt;", 4)) { *out++ = L'>'; p += 4; }
    else if (!wcsncmp(p, L"&amp;", 5)) { *out++ = L'&'; p += 5; }
    else { free(copy); return nullptr; }
  }
  *out = 0;
  return copy;
}

// Bytes that stand for themselves inside a value quoted with " or ': ASCII
// other than NUL, '&' and the quote. Built at compile time.
// Ascii*: the same with '&' allowed.
struct TPlainBytes {
  bool InDouble[256], InSingle[256], AsciiInDouble[256], AsciiInSingle[256];
  constexpr TPlainBytes() : InDouble(), InSingle(), AsciiInDouble(), AsciiInSingle() {
    for (int b = 0; b < 256; b++) {
      AsciiInDouble[b] = AsciiInSingle[b] = b > 0 && b < 0x80;
      InDouble[b] = InSingle[b] = b > 0 && b < 0x80 && b != '&';
    }
    InDouble[(int)'"'] = InSingle[(int)'\''] = AsciiInDouble[(int)'"'] = AsciiInSingle[(int)'\''] = false;
  }
};
constexpr TPlainBytes PlainBytes;
constexpr const bool* PlainInDouble = PlainBytes.InDouble;
constexpr const bool* PlainInSingle = PlainBytes.InSingle;
constexpr const bool* AsciiInDouble = PlainBytes.AsciiInDouble;
constexpr const bool* AsciiInSingle = PlainBytes.AsciiInSingle;
// Bytes that stand for themselves in an attribute name: ASCII above the
// blanks, other than '='.
struct TNameBytes {
  bool Is[256];
  constexpr TNameBytes() : Is() {
    for (int b = 33; b < 0x80; b++) Is[b] = b != '=';
  }
};
constexpr TNameBytes NameByteTable;
constexpr const bool* NameBytes = NameByteTable.Is;

// Decodes entities from source up to NUL or end; returns the output's end.
// C is wchar_t, or unsigned char for ASCII bytes that stand for themselves.
template <class C>
wchar_t* DecodeEntities(const C* source, wchar_t* target, const C* end) {
  auto inside = [end](const C* p) { return (!end || p < end) && *p; };
  while (inside(source)) {
    if (*source != L'&') {
      *target++ = *source++;
      continue;
    }
    // Named entities are told by their first letter and where the ';' is.
    C next[6] = {0, 0, 0, 0, 0, 0};
    for (int i = 1; i <= 5 && inside(source + i); i++) next[i] = source[i];
    C c = next[1];
    if (c == L'q' && next[5] == L';') { *target++ = L'"'; source += 6; }
    else if (c == L'l' && next[3] == L';') { *target++ = L'<'; source += 4; }
    else if (c == L'g' && next[3] == L';') { *target++ = L'>'; source += 4; }
    else if (c == L'a' && next[4] == L';') { *target++ = L'&'; source += 5; }
    else if (c == L'a' && next[5] == L';') { *target++ = L'\''; source += 6; }
    else if (c == L'#') {
      const C* q = source + 2;
      bool hex = next[2] == L'x' || next[2] == L'X';
      if (hex) q++;
      unsigned code = 0;
      for (; inside(q); q++) {
        C d = *q;
        if (d >= L'0' && d <= L'9') code = code * (hex ? 16 : 10) + (d - L'0');
        else if (hex && d >= L'a' && d <= L'f') code = code * 16 + (d - L'a' + 10);
        else if (hex && d >= L'A' && d <= L'F') code = code * 16 + (d - L'A' + 10);
        else break;
      }
      // The character that stopped the digits is consumed too; without a ';'
      // nothing is written.
      if (inside(q)) {
        if (*q == L';') *target++ = (wchar_t)code;
        q++;
      }
      source = q;
    } else {
      *target++ = *source++;
      if (c) *target++ = *source++;
    }
  }
  return target;
}

}  // namespace

// Working state of one document read: the entries of all open elements as one
// stack, and an arena for decoded values released element by element. Both
// are reused across elements, so reading allocates nothing per attribute.
struct TNodeXml::TScan {
  std::vector<TEntry> Entries;
  std::vector<wchar_t*> Blocks;
  std::vector<size_t> Sizes;
  size_t Block = 0, Used = 0;
  int Point = -1;
  uintptr_t DiscardFrom = 0, Page = 0;
  // Slots of recently seen attribute names by mode: a name keeps its slot
  // in a space once it has one, and reading removes no names.
  struct TName {
    int Mode = -1;
    int Length = 0;
    int Slot = -1;
    wchar_t Text[16];
  };
  std::vector<TName> Names;

  ~TScan() {
    for (wchar_t* b : Blocks) free(b);
  }
  void Add(int slot, const wchar_t* text, int length) { Entries.push_back({text, length, slot, false}); }
  void Pop(size_t base) { Entries.resize(base); }
  wchar_t* Reserve(size_t cells) {
    if (Block < Blocks.size() && Used + cells <= Sizes[Block]) {
      wchar_t* p = Blocks[Block] + Used;
      Used += cells;
      return p;
    }
    if (Block < Blocks.size() && Used > 0) Block++, Used = 0;
    if (Block == Blocks.size()) Blocks.push_back(nullptr), Sizes.push_back(0);
    if (Sizes[Block] < cells) {
      free(Blocks[Block]);
      Sizes[Block] = cells > 65536 ? cells : 65536;
      Blocks[Block] = (wchar_t*)malloc(Sizes[Block] * sizeof(wchar_t));
    }
    Used = cells;
    return Blocks[Block];
  }
  // The characters from start up to end as wide text: wide documents are read
  // in place; UTF-8 is decoded into the arena, terminated.
  const wchar_t* Text(const wchar_t* start, const wchar_t* end, int& length) {
    length = (int)(end - start);
    return start;
  }
  const wchar_t* Text(const TUtf8Cursor& start, const TUtf8Cursor& end, int& length) {
    wchar_t* target = Reserve(start.BytesTo(end) + 1);
    wchar_t* out = start.Widen(end, target);
    *out = 0;
    length = (int)(out - target);
    return target;
  }
  static unsigned NameHash(unsigned first, unsigned last, size_t length) {
    return (first * 31u + last * 7u + (unsigned)length) & 63;
  }
  // The slot of an attribute name in the space of mode; -1 for a name the
  // table could not number, which is dropped rather than misplaced, and
  // FlagsName for "_0F", which is no attribute.
  static const int FlagsName = -2;
  int NameSlot(TIndextable& names, const wchar_t* text, int length, int mode) {
    TName* cached = nullptr;
    if (length > 0 && length <= 16) {
      if (Names.empty()) Names.resize(64);
      cached = &Names[NameHash(text[0], text[length - 1], length)];
      if (cached->Mode == mode && cached->Length == length && !wmemcmp(cached->Text, text, length))
        return cached->Slot;
    }
    int slot = FlagsName;
    if (length != 3 || wcsncmp(text, L"_0F", 3)) {
      int index = names.GetIndexN(text, length, mode);
      slot = mode == 2 ? index >> 16 : index & 0xFFFF;
      if (index == -1 || slot < 0 || slot > TIndextable::MaxSlot) slot = -1;
    }
    if (cached) {
      cached->Mode = mode;
      cached->Length = length;
      cached->Slot = slot;
      wmemcpy(cached->Text, text, length);
    }
    return slot;
  }
  // Giving back the pages of a large buffer behind the reading: once a
  // child element is complete, nothing behind the cursor is read again but
  // the plain values of the elements still open. It keeps the peak of a
  // load near the tree's own size.
  void StartDiscard(const char* text) {
    long page = sysconf(_SC_PAGESIZE);
    if (page <= 0) return;
    Page = (uintptr_t)page;
    DiscardFrom = ((uintptr_t)text + Page - 1) & ~(Page - 1);
  }
  void Discard(const wchar_t*) {}
  void Discard(const TUtf8Cursor& p) {
    if (!DiscardFrom) return;
    // A page of margin behind the cursor; steps of 4 MiB.
    uintptr_t end = ((uintptr_t)p.Bytes() & ~(Page - 1)) - Page;
    if (end < DiscardFrom + (4u << 20) || end > (uintptr_t)p.Bytes()) return;
    // Plain values of the open elements are still read in place: pages
    // from the first of them on stay.
    for (const TEntry& e : Entries)
      if (e.Narrow) {
        uintptr_t kept = (uintptr_t)e.Text & ~(Page - 1);
        if (kept < end) end = kept;
        break;
      }
    if (end < DiscardFrom + (4u << 20)) return;
    madvise((void*)DiscardFrom, end - DiscardFrom, MADV_DONTNEED);
    DiscardFrom = end;
  }
  static bool InPlace(const wchar_t* text, const wchar_t* start) { return text == start; }
  static bool InPlace(const wchar_t*, const TUtf8Cursor&) { return false; }
  // The slot of the name from start to end, as NameSlot gives it. An ASCII
  // name of UTF-8 is first compared by byte with the cached one.
  int AttrSlot(TIndextable& names, const wchar_t* start, const wchar_t* end, int mode) {
    return NameSlot(names, start, (int)(end - start), mode);
  }
  int AttrSlot(TIndextable& names, const TUtf8Cursor& start, const TUtf8Cursor& end, int mode) {
    const unsigned char* b = (const unsigned char*)start.Bytes();
    size_t n = start.BytesTo(end);
    if (n > 0 && n <= 16 && !Names.empty()) {
      const TName& cached = Names[NameHash(b[0], b[n - 1], n)];
      if (cached.Mode == mode && cached.Length == (int)n) {
        size_t i = 0;
        while (i < n && b[i] < 0x80 && (wchar_t)b[i] == cached.Text[i]) i++;
        if (i == n) return cached.Slot;
      }
    }
    int length;
    const wchar_t* text = Text(start, end, length);
    return NameSlot(names, text, length, mode);
  }
  // The start of an attribute read by byte where it is plain ASCII: blanks,
  // a name, '=' right behind it and a quote. Then p stands behind the quote
  // and name holds the name's bytes, each a character of its own value.
  // Otherwise nothing moves and the general path reads from p. Wide text
  // always takes the general path.
  static bool QuickAttribute(const wchar_t*&, const unsigned char*&, size_t&, wchar_t&) { return false; }
  static bool QuickAttribute(TUtf8Cursor& p, const unsigned char*& name, size_t& length, wchar_t& quote) {
    const unsigned char* s = (const unsigned char*)p.Bytes();
    while (*s - 1u < 32u) s++;
    if (*s == '>' || *s == '/') return false;
    const unsigned char* start = s;
    while (NameBytes[*s]) s++;
    if (s == start || s[0] != '=' || (s[1] != '"' && s[1] != '\'')) return false;
    name = start;
    length = s - start;
    quote = s[1];
    p.MoveTo((const char*)s + 2);
    return true;
  }
  // The slot of an ASCII name given by its bytes, as NameSlot gives it.
  int AsciiNameSlot(TIndextable& names, const unsigned char* b, size_t n, int mode) {
    if (n <= 16 && !Names.empty()) {
      const TName& cached = Names[NameHash(b[0], b[n - 1], n)];
      if (cached.Mode == mode && cached.Length == (int)n) {
        size_t i = 0;
        while (i < n && (wchar_t)b[i] == cached.Text[i]) i++;
        if (i == n) return cached.Slot;
      }
    }
    wchar_t* text = Reserve(n + 1);
    for (size_t i = 0; i < n; i++) text[i] = b[i];
    text[n] = 0;
    return NameSlot(names, text, (int)n, mode);
  }
  // A value's characters as wide text. Plain: known to hold no '&'. Owned:
  // in the arena, so decoding may overwrite it. With Bytes the value is
  // Length ASCII bytes in place, not widened, and Text is null: plain ones
  // stand for themselves, others hold entities to decode.
  struct TValue {
    const wchar_t* Text;
    int Length;
    bool Plain;
    bool Owned;
    const char* Bytes = nullptr;
  };
  // A narrow value widened into the arena, terminated.
  TValue Wide(const TValue& value) {
    if (!value.Bytes) return value;
    wchar_t* target = Reserve(value.Length + 1);
    for (int i = 0; i < value.Length; i++) target[i] = (unsigned char)value.Bytes[i];
    target[value.Length] = 0;
    return {target, value.Length, value.Plain, true};
  }
  // An attribute value from p, behind its opening quote, up to the closing
  // quote or the end, where p stops.
  TValue ReadValue(const wchar_t*& p, wchar_t quote) {
    const wchar_t* start = p;
    SkipWhile(p, [quote](wchar_t c) { return c && c != quote; });
    return {start, (int)(p - start), false, false};
  }
  TValue ReadValue(TUtf8Cursor& p, wchar_t quote) {
    // Plain ASCII, the common case, is found by byte and left in place, to
    // be widened straight into the record; anything else is scanned by
    // character.
    size_t n = 0;
    bool doubleQuote = quote == L'"';
    const char* bytes = p.Bytes();
    if (p.PlainRun(doubleQuote ? PlainInDouble : PlainInSingle, (unsigned char)quote, n)) {
      p.SkipPlain(n);
      return {nullptr, (int)n, true, false, bytes};
    }
    // ASCII with entities is decoded from its bytes when it is stored.
    if (p.ByteAt(n) == '&' && p.PlainRun(doubleQuote ? AsciiInDouble : AsciiInSingle, (unsigned char)quote, n)) {
      p.SkipPlain(n);
      return {nullptr, (int)n, false, false, bytes};
    }
    const TUtf8Cursor start = p;
    SkipWhile(p, [quote](wchar_t c) { return c && c != quote; });
    int length;
    const wchar_t* text = Text(start, p, length);
    return {text, length, false, true};
  }
  // A value as it will be stored: without '&' as it stands, decoded otherwise.
  // A decoded value is never longer than its source.
  void AddValue(int slot, const TValue& value) {
    if (value.Bytes && value.Plain) return Entries.push_back({value.Bytes, value.Length, slot, true});
    if (value.Bytes) {
      const unsigned char* source = (const unsigned char*)value.Bytes;
      wchar_t* target = Reserve(value.Length + 1);
      wchar_t* last = DecodeEntities(source, target, source + value.Length);
      return Add(slot, target, (int)(last - target));
    }
    if (value.Plain || !wmemchr(value.Text, L'&', value.Length)) return Add(slot, value.Text, value.Length);
    wchar_t* target = value.Owned ? const_cast<wchar_t*>(value.Text) : Reserve(value.Length + 1);
    wchar_t* last = XmlToString(value.Text, target, value.Text + value.Length);
    Add(slot, target, (int)(last - target));
  }
  template <class P>
  void AddValue(int slot, P start, P end) {
    int length;
    const wchar_t* text = Text(start, end, length);
    AddValue(slot, {text, length, false, !InPlace(text, start)});
  }
};

const wchar_t* TNodeXml::SetXml(const wchar_t* text, int depth) {
  if (!text) return nullptr;
  TScan scan;
  if (!wcsncmp(text, L"&lt;", 4)) {
    wchar_t* copy = DecodeEscapedDocument(text);
    if (!copy) return nullptr;
    const wchar_t* p = copy;
    bool read = Scan(scan, p, depth);
    free(copy);
    // The position inside the freed copy means nothing to the caller; success
    // is reported as the end of the original text.
    return read ? text + wcslen(text) : nullptr;
  }
  return Scan(scan, text, depth) ? text : nullptr;
}

const char* TNodeXml::SetXml(const char* text, int depth, bool discard) {
  if (!text) return nullptr;
  TScan scan;
  if (discard) scan.StartDiscard(text);
  TUtf8Cursor p(text);
  return Scan(scan, p, depth) ? p.Bytes() : nullptr;
}

template <class P>
bool TNodeXml::Scan(TScan& scan, P& p, int depth) {
  if (depth > MaxDepth) return false;
  if (depth > 2) Flags |= FSpec;
  int mode = Flags & FSpec ? 2 : 1;

  for (;;) {
    p = SkipBlanks(p);
    if (*p != L'<') return *p != 0;
    if (p[1] != L'!' && p[1] != L'?') break;
    if (!SkipDeclaration(p)) return false;
  }

  const size_t base = scan.Entries.size();
  const size_t arenaBlock = scan.Block, arenaUsed = scan.Used;
  bool result = false;
  int length;
  const P name = ++p;
  SkipWhile(p, [](wchar_t c) { return c && !IsBlank(c) && c != L'/' && c != L'>'; });
  const wchar_t* nameText = scan.Text(name, p, length);
  scan.Add(0, nameText, length);

  // Attributes. Most are plain ASCII up to their value and are read by byte
  // (QuickAttribute); the rest, and the tag's end, character by character.
  for (;;) {
    P attr = p, attrEnd = p;
    const unsigned char* quickName = nullptr;
    size_t quickLength = 0;
    wchar_t quote;
    if (!scan.QuickAttribute(p, quickName, quickLength, quote)) {
      p = SkipBlanks(p);
      if (!*p) goto done;
      if (*p == L'>') { p++; break; }
      if (*p == L'/') {
        p = SkipBlanks(p + 1);
        if (*p != L'>') goto done;
        SetRow(&scan.Entries[base], (int)(scan.Entries.size() - base), scan.Point);
        p++;
        result = true;
        goto done;
      }
      attr = p;
      SkipWhile(p, [](wchar_t c) { return (unsigned)c > 32 && c != L'='; });
      attrEnd = p;
      p = SkipBlanks(p);
      if (*p != L'=') goto done;
      p = SkipBlanks(p + 1);
      quote = *p;
      if (quote != L'"' && quote != L'\'') goto done;
      ++p;
    }
    const TScan::TValue value = scan.ReadValue(p, quote);
    if (!*p) goto done;
    p++;
    int slot = quickName ? scan.AsciiNameSlot(Tree->Names, quickName, quickLength, mode)
                         : scan.AttrSlot(Tree->Names, attr, attrEnd, mode);
    if (slot == TScan::FlagsName) {
      // Read up to the first character that is not a digit: the closing quote
      // in place, the terminator of a copy in the arena.
      if (wcstol(scan.Wide(value).Text, nullptr, 10) & FFiltered) Flags |= FFiltered;
      continue;
    }
    if (slot < 0) continue;
    scan.AddValue(slot, value);
  }

  // Content: children and text runs up to the end tag.
  for (;;) {
    p = SkipBlanks(p);
    if (!*p) goto done;
    if (*p == L'<') {
      if (p[1] == L'!' || p[1] == L'?') {
        if (!SkipDeclaration(p)) goto done;
        continue;
      }
      P q = SkipBlanks(p + 1);
      if (*q == L'/') {
        SkipWhile(q, [](wchar_t c) { return c && c != L'>'; });
        if (!*q) goto done;
        SetRow(&scan.Entries[base], (int)(scan.Entries.size() - base), scan.Point);
        p = q + 1;
        result = true;
        goto done;
      }
      TNodeXml* child = (TNodeXml*)Tree->CreatePooledElement();
      if (!child->Scan(scan, p, depth + 1) || !*p) {
        TNode::Delete(child);
        goto done;
      }
      AppendChild(child);
      scan.Discard(p);
      continue;
    }
    const P text = p;
    SkipWhile(p, [](wchar_t c) { return c && c != L'<'; });
    if (!*p) goto done;
    scan.AddValue(2, text, p);
  }

done:
  scan.Pop(base);
  scan.Block = arenaBlock;
  scan.Used = arenaUsed;
  return result;
}

namespace {
// The stored type of a value, decided by its shape alone. C is wchar_t, or
// unsigned char for ASCII bytes that stand for themselves.
template <class C>
int Classify(const C* v, int n) {
  if (n == 0) return TString;
  C c = v[0];
  bool candidate = (c >= L'1' && c <= L'9') || (c == L'0' && (n == 1 || v[1] == L'.')) ||
                   (c == L'-' && n > 1 && (v[1] != L'0' || (n > 2 && v[2] == L'.')));
  if (!candidate) return TString;
  int type = TInt, dot = 0;
  for (int i = 1; i < n; i++) {
    if (v[i] == L'.') {
      if (dot) return TString;
      dot = i + 1;
      type = TDouble;
    } else if (v[i] < L'0' || v[i] > L'9') {
      return TString;
    }
  }
  if (type == TInt) {
    if (n > 9) type = TDouble;
    else return n <= 2 ? TByte : TInt;
  }
  if (n > 15 || n - dot > 9 || dot == n) return TString;
  return TDouble;
}

// Integers of at most nine characters, checked by Classify.
template <class C>
int ParseInt(const C* v, int n) {
  bool negative = *v == L'-';
  int value = 0;
  for (int i = negative; i < n; i++) value = value * 10 + (v[i] - L'0');
  return negative ? -value : value;
}

// Whether the locale reads '.' as the decimal point, as wcstod does.
bool PointIsDot() {
  const char* point = nl_langinfo(RADIXCHAR);
  return point && point[0] == '.' && !point[1];
}

// Decimals of the shape Classify lets through: at most 15 characters with at
// most 9 after the dot. Their digits make an integer below 2^53 and 10^9 is
// exact, so the one division rounds just as wcstod reads the text; where the
// locale's point is not '.', wcstod itself reads it.
template <class C>
double ParseDouble(const C* v, int n, bool pointIsDot) {
  if (pointIsDot) {
    bool negative = *v == L'-';
    long long digits = 0, scale = 1;
    bool decimals = false;
    for (int i = negative; i < n; i++) {
      if (v[i] == L'.') {
        decimals = true;
        continue;
      }
      digits = digits * 10 + (v[i] - L'0');
      if (decimals) scale *= 10;
    }
    double value = (double)digits / (double)scale;
    return negative ? -value : value;
  }
  wchar_t buffer[16];
  for (int i = 0; i < n; i++) buffer[i] = v[i];
  buffer[n] = 0;
  return wcstod(buffer, nullptr);
}

// Bytes a read row's value area keeps beyond its values.
const size_t TrimSpare = 32;

int StringRoomLog2(int length) { return TData::GetLog2((length + 1) * (int)sizeof(wchar_t)); }

// A text written out as terminated wide text.
inline void CopyText(const wchar_t* v, int n, unsigned char* out) {
  memcpy(out, v, n * sizeof(wchar_t));
  memset(out + n * sizeof(wchar_t), 0, sizeof(wchar_t));
}
inline void CopyText(const unsigned char* v, int n, unsigned char* out) {
  wchar_t* wide = (wchar_t*)out;
  for (int i = 0; i < n; i++) wide[i] = v[i];
  wide[n] = 0;
}

// Classify, ParseInt, ParseDouble and CopyText of either kind of entry.
int ClassifyEntry(const void* text, int n, bool narrow) {
  return narrow ? Classify((const unsigned char*)text, n) : Classify((const wchar_t*)text, n);
}
int EntryInt(const void* text, int n, bool narrow) {
  return narrow ? ParseInt((const unsigned char*)text, n) : ParseInt((const wchar_t*)text, n);
}
double EntryDouble(const void* text, int n, bool narrow, bool pointIsDot) {
  return narrow ? ParseDouble((const unsigned char*)text, n, pointIsDot)
                : ParseDouble((const wchar_t*)text, n, pointIsDot);
}
void CopyEntry(const void* text, int n, bool narrow, unsigned char* out) {
  if (narrow) CopyText((const unsigned char*)text, n, out);
  else CopyText((const wchar_t*)text, n, out);
}
}  // namespace

void TNodeXml::SetRow(const TEntry* entries, int count, int& point) {
  // Pass 1: types and sizes. Values are laid out with every non-byte value
  // first, so that all of them (sizes are multiples of 4) and thus all texts
  // stay aligned for wchar_t; bytes follow.
  unsigned char typesLocal[64];
  std::vector<unsigned char> typesHeap;
  unsigned char* types = typesLocal;
  if (count > 64) typesHeap.resize(count), types = typesHeap.data();

  long long used = 0, bytes = 0;
  int highest = 0;
  for (int i = 0; i < count; i++) {
    const TEntry& e = entries[i];
    int type = ClassifyEntry(e.Text, e.Length, e.Narrow);
    long long size = type == TByte ? 1 : type == TInt ? 4 : type == TDouble ? 8 : 0;
    if (type == TString) {
      // A text whose room would not fit the 24-bit positions is left out.
      long long raw = ((long long)e.Length + 1) * (long long)sizeof(wchar_t);
      size = raw > MaxValues ? MaxValues + 1LL : 1LL << StringRoomLog2(e.Length);
    }
    if (used + size > MaxValues) {
      types[i] = TNone;
      continue;
    }
    types[i] = (unsigned char)type;
    used += size;
    if (type == TByte) bytes++;
    if (e.Slot > highest) highest = e.Slot;
  }

  ReleaseBlocks();
  Used = (int)used;
  Capacity = GetMaxLog2(Used);
  SlotCount = (int16_t)(highest + 3);
  SlotWidth = Capacity <= 256 ? 2 : 4;
  TakeBlocks();

  // Pass 2: values and slots in document order; a later duplicate wins.
  int position = 0, bytePosition = (int)(used - bytes);
  const TEntry* idEntry = nullptr;
  int idType = TNone;
  for (int i = 0; i < count; i++) {
    const TEntry& e = entries[i];
    int type = types[i];
    switch (type) {
      case TNone:
        continue;
      case TByte:
        Values[bytePosition] = (unsigned char)(signed char)EntryInt(e.Text, e.Length, e.Narrow);
        WriteSlot(e.Slot, 0x01, bytePosition++);
        break;
      case TInt: {
        int value = EntryInt(e.Text, e.Length, e.Narrow);
        memcpy(Values + position, &value, 4);
        WriteSlot(e.Slot, 0x13, position);
        position += 4;
        break;
      }
      case TDouble: {
        if (point < 0) point = PointIsDot();
        double value = EntryDouble(e.Text, e.Length, e.Narrow, point);
        memcpy(Values + position, &value, 8);
        WriteSlot(e.Slot, 0x1E, position);
        position += 8;
        break;
      }
      case TString: {
        int log2 = StringRoomLog2(e.Length);
        CopyEntry(e.Text, e.Length, e.Narrow, Values + position);
        WriteSlot(e.Slot, (log2 << 3) | TString, position);
        position += 1 << log2;
        break;
      }
    }
    if (e.Slot == (IIdIndex & 0xFFFF)) idEntry = &e, idType = type;
  }

  // Pass 3: a known id makes this element replace the earlier row. A number
  // is the text it was read from: the shapes read as numbers are the ones
  // its decimal writing gives back, as GetId would write it into scratch.
  wchar_t number[24];
  const wchar_t* id;
  if (idType == TByte || idType == TInt) {
    for (int i = 0; i < idEntry->Length; i++)
      number[i] = idEntry->Narrow ? ((const unsigned char*)idEntry->Text)[i] : ((const wchar_t*)idEntry->Text)[i];
    number[idEntry->Length] = 0;
    id = number;
  } else {
    id = GetId();
  }
  if (!*id || !Tree) return;
  int entry = Tree->Ids.Get(id, 1);
  TNode* old = Tree->Ids.GetNode(entry);
  if (old && old != this && old != Tree->Root) {
    Merge(old, 0);
    // Only the first child comes across; the rest die with the old row.
    if (old->FirstChild) AppendChild(old->FirstChild);
    old->Tree = nullptr;
    TNode::Delete(old);
  }
  Tree->Ids.SetNode(entry, this);
}

void TNodeXml::TakeBlocks() {
  size_t slotBytes = (size_t)SlotCount * SlotWidth;
  // The area holds what was read and room for a value or two more (a
  // calculated cell, say); room up to Capacity comes with the first append
  // that needs it (WidenValues).
  size_t valueBytes = (((size_t)Used + 3) & ~(size_t)3) + TrimSpare;
  if (valueBytes >= (size_t)Capacity || valueBytes / 4 > 0xFFFF) valueBytes = Capacity;
  if (Capacity) {
    Values = Tree ? (unsigned char*)Tree->Store.TakeBytes(valueBytes) : nullptr;
    if (Values) Pooled |= PooledValues;
    else Values = (unsigned char*)malloc(valueBytes);
    if (valueBytes < (size_t)Capacity) {
      Pooled |= TrimmedValues;
      TrimmedRoom = (uint16_t)(valueBytes / 4);
    }
  }
  Slots = Tree ? Tree->Store.TakeBytes(slotBytes) : nullptr;
  if (Slots) {
    Pooled |= PooledSlots;
    memset(Slots, 0, slotBytes);
  } else {
    Slots = calloc(SlotCount, SlotWidth);
  }
}

wchar_t* TNodeXml::XmlToString(const wchar_t* source, wchar_t* target, const wchar_t* end) {
  return DecodeEntities(source, target, end);
}

const wchar_t* TTree::AddDocument(TNode* element, const wchar_t* text) {
  if (*text == 0xFEFF) text++;
  const wchar_t* result = ((TNodeXml*)element)->SetXml(text, 0);
  return AttachDocument(element, result != nullptr) ? result : nullptr;
}

bool TTree::AttachDocument(TNode* element, bool read) {
  if (!read) {
    TNode::Delete(element);
    return false;
  }
  if (!Root) {
    Root = element;
  } else if (!wcscmp(Root->GetName(), element->GetName())) {
    Root->Merge(element, 1);
    while (element->FirstChild) Root->AppendChild(element->FirstChild);
    TNode::Delete(element);
  } else {
    TNode::Delete(Root);
    Root = element;
  }
  return true;
}

const wchar_t* TTree::SetXml(const wchar_t* text) {
  if (!text) return nullptr;
  // UTF-8 handed to the wide form by mistake: read it, then go on as wide
  // text all the same (which gives a nameless root), as callers rely on.
  const unsigned char* bytes = (const unsigned char*)text;
  if (bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) SetXml((const char*)bytes + 3);
  return AddDocument(CreateElement(nullptr), text);
}

const char* TTree::SetXml(const char* text) { return SetXml(text, false); }

const char* TTree::SetXml(const char* text, bool discard) {
  if (!text) return nullptr;
  const unsigned char* bytes = (const unsigned char*)text;
  if (bytes[0] == 0xFF && bytes[1] == 0xFE) {
    // The mark is FF FE 00 00. Any other third byte means an 8-bit text that
    // merely starts with FF FE: reading it as wide text would run past its end.
    if (bytes[2] != 0) return nullptr;
    // Wide text behind a 4-byte mark; copied when it is not aligned for wchar_t.
    const char* wide = text + 4;
    if ((uintptr_t)wide % sizeof(wchar_t) == 0) return SetXml((const wchar_t*)wide) ? wide : nullptr;
    size_t n = 0;
    for (;; n++) {
      wchar_t c;
      memcpy(&c, wide + n * sizeof(wchar_t), sizeof c);
      if (!c) break;
    }
    std::vector<wchar_t> copy(n + 1);
    memcpy(copy.data(), wide, (n + 1) * sizeof(wchar_t));
    return SetXml(copy.data()) ? wide : nullptr;
  }
  if (bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) text += 3;
  // UTF-8 is read as it is scanned, with no wide copy of the whole document;
  // only a document escaped as a whole is widened first, to be decoded.
  TUtf8Cursor start(text);
  if (*start == 0xFEFF) ++start;
  if (!(start[0] == L'&' && start[1] == L'l' && start[2] == L't' && start[3] == L';')) {
    TNode* element = CreateElement(nullptr);
    bool read = ((TNodeXml*)element)->SetXml(start.Bytes(), 0, discard) != nullptr;
    return AttachDocument(element, read) ? text : nullptr;
  }
  size_t length = strlen(text);
  wchar_t stackBuffer[2048];
  std::vector<wchar_t> heapBuffer;
  wchar_t* buffer = stackBuffer;
  if (length > 2047) heapBuffer.resize(length + 1), buffer = heapBuffer.data();
  ToUnicode(text, buffer);
  return SetXml((const wchar_t*)buffer) ? text : nullptr;
}

namespace {
// A regular file mapped for reading, with a page of zeros mapped behind it:
// the text ends in NULs even where the file has grown since it was measured.
// Its pages come from the file cache as they are read, without being zeroed
// or copied first. Null when it cannot be mapped. A file cut shorter by
// another process during the read would fault, as with any mapping.
char* MapFile(int fd, size_t size, size_t& mapped) {
  long page = sysconf(_SC_PAGESIZE);
  if (page <= 0 || size > SIZE_MAX / 2) return nullptr;
  mapped = ((size + page - 1) & ~((size_t)page - 1)) + page;
  void* room = mmap(nullptr, mapped, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (room == MAP_FAILED) return nullptr;
  if (mmap(room, size, PROT_READ, MAP_PRIVATE | MAP_FIXED, fd, 0) == MAP_FAILED) {
    munmap(room, mapped);
    return nullptr;
  }
  return (char*)room;
}
}  // namespace

int TTree::LoadXml(const wchar_t* path) {
  FILE* file = _wfopen(path, L"rb");
  if (!file) return -1;
  struct stat status;
  if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
    size_t mapped = 0;
    char* text = MapFile(fileno(file), (size_t)status.st_size, mapped);
    if (text) {
      fclose(file);
      int result = ReadLoaded(text);
      munmap(text, mapped);
      return result;
    }
  }
  long size = -1;
  if (fseek(file, 0, SEEK_END) == 0) size = ftell(file);
  // A directory opens, and measures as the largest size there is.
  if (size <= 0 || size > LONG_MAX - 8) {
    fclose(file);
    return size == 0 ? -2 : -1;
  }
  fseek(file, 0, SEEK_SET);
  // Eight NULs end the text for the 8-bit and for the wide reading alike.
  char* buffer = (char*)malloc(size + 8);
  size_t read = fread(buffer, 1, size, file);
  fclose(file);
  memset(buffer + read, 0, 8);
  int result = ReadLoaded(buffer);
  free(buffer);
  return result;
}

int TTree::ReadLoaded(const char* text) {
  // The text is the reader's alone: pages it has read go back at once.
  const char* position = SetXml(text, true);
  if (!position) return -3;
  if (position != text)
    for (const unsigned char* p = (const unsigned char*)position; *p; p++)
      if (*p > 32 && *p < 128) return 1;
  return 0;
}

// ======================= writing =======================

bool TNodeXml::Realloc(wchar_t*& cursor, wchar_t*& start, wchar_t*& end, int need) {
  if (!start) return false;
  size_t size = end - start, offset = cursor - start;
  size_t grown = size * 2;
  if ((size_t)need + 128 > grown) grown = need + 128;
  // Never less than what the cursor needs, whatever need was measured from.
  if (offset + need + 128 > grown) grown = offset + need + 128;
  wchar_t* block = (wchar_t*)realloc(start, grown * sizeof(wchar_t));
  if (!block) return false;
  start = block;
  cursor = block + offset;
  end = block + grown;
  return true;
}

namespace {
// Room for n more characters, keeping the terminator's cell.
inline bool Ensure(wchar_t*& cursor, wchar_t*& start, wchar_t*& end, size_t n) {
  return cursor + n < end || TNodeXml::Realloc(cursor, start, end, n > INT_MAX - 256 ? INT_MAX - 256 : (int)n);
}

inline wchar_t* Put(wchar_t* cursor, const wchar_t* text) {
  while (*text) *cursor++ = *text++;
  return cursor;
}
}  // namespace

wchar_t* TNodeXml::StringToXml(const wchar_t* source, wchar_t* target) {
  for (; *source; source++) {
    switch (*source) {
      case L'&': target = Put(target, L"&amp;"); break;
      case L'<': target = Put(target, L"&lt;"); break;
      case L'>': target = Put(target, L"&gt;"); break;
      case L'"': target = Put(target, L"&quot;"); break;
      case 10: target = Put(target, L"&#x0A;"); break;
      default: *target++ = *source;
    }
  }
  return target;
}

bool TNodeXml::ChildrenGoOut(int flags) const {
  return (flags & (2 | 64)) || (Flags & FState) || HasChildCount(Tree->MaxChildrenOffline + 1, flags) >= 1;
}

int TNodeXml::GetXmlLength(int flags) {
  long long length = 32;
  // The loop hands GetLength the plain slot number, as the estimate always did.
  for (int slot = 0; slot < SlotCount; slot++) length += GetLength(slot) + 4;
  if (FirstChild && ChildrenGoOut(flags))
    for (TNode* child = FirstChild; child; child = child->Next)
      if (!(child->Flags & FFiltered) || (flags & 1)) length += ((TNodeXml*)child)->GetXmlLength(flags & ~64);
  return length > INT_MAX / 2 ? INT_MAX / 2 : (int)length;
}

bool TNodeXml::WriteValue(int meta, const unsigned char* value, wchar_t*& cursor, wchar_t*& start, wchar_t*& end) {
  switch (meta & 7) {
    case TByte:
    case TInt:
    case TDouble:
      if (!Ensure(cursor, start, end, 128)) return false;
      if ((meta & 7) == TDouble) {
        double d;
        memcpy(&d, value, 8);
        cursor = ToString(d, cursor, Tree->Precision);
      } else {
        cursor = IntToString(GetIntAt(meta & 7, value), cursor);
      }
      return true;
    case TString: {
      const wchar_t* text = StringAt(value);
      size_t length = wcslen(text);
      // Escaping makes at most six characters of one.
      if (!Ensure(cursor, start, end, length * 6 + 64)) return false;
      if (wcspbrk(text, L"&<>\"")) {
        cursor = StringToXml(text, cursor);
      } else {
        wmemcpy(cursor, text, length);
        cursor += length;
      }
      return true;
    }
  }
  return true;
}

wchar_t* TNodeXml::GetXml(wchar_t* cursor, wchar_t*& start, wchar_t*& end, int flags, int depth) {
  const wchar_t* name = GetStringBase(INameIndex);
  size_t nameLength = wcslen(name);
  if (!Ensure(cursor, start, end, nameLength + 64)) return nullptr;
  *cursor++ = L'<';
  cursor = wmemcpy(cursor, name, nameLength) + nameLength;

  bool spec = Flags & FSpec;
  for (int slot = 3; slot < SlotCount; slot++) {
    unsigned s = GetSlot(slot);
    int meta = MetaOf(s, SlotWidth);
    if (!(meta & 7)) continue;
    const wchar_t* attr = Tree->GetName(spec ? slot << 16 : slot, spec ? 2 : 1);
    if (!attr || *attr == L'#') continue;
    if (!Ensure(cursor, start, end, wcslen(attr) + 64)) return nullptr;
    *cursor++ = L' ';
    cursor = Put(cursor, attr);
    *cursor++ = L'=';
    *cursor++ = L'"';
    if (!WriteValue(meta, Values + PosOf(s, SlotWidth), cursor, start, end)) return nullptr;
    *cursor++ = L'"';
  }
  if (flags & 4) {
    if (!Ensure(cursor, start, end, 64)) return nullptr;
    cursor = Put(cursor, L" _0F=\"");
    cursor = IntToString(Flags, cursor);
    *cursor++ = L'"';
  }

  int textMeta = SlotCount > 2 ? MetaOf(GetSlot(2), SlotWidth) : 0;
  if (!FirstChild && !textMeta) {
    if (!Ensure(cursor, start, end, 64)) return nullptr;
    *cursor++ = L'/';
    *cursor++ = L'>';
    *cursor = 0;
    return cursor;
  }

  if (ChildrenGoOut(flags)) {
    *cursor++ = L'>';
    for (TNode* child = FirstChild; child; child = child->Next) {
      if ((child->Flags & FFiltered) && !(flags & 1)) continue;
      cursor = ((TNodeXml*)child)->GetXml(cursor, start, end, flags & ~64, depth + 1);
      if (!cursor) return nullptr;
    }
  } else {
    int count = 0;
    for (TNode* child = FirstChild; child; child = child->Next)
      if (!(child->Flags & FFiltered) || (flags & 1)) count++;
    if (!Ensure(cursor, start, end, 64)) return nullptr;
    cursor = Put(cursor, L" State=\"0\" Count=\"");
    cursor = IntToString(count, cursor);
    *cursor++ = L'"';
    *cursor++ = L'>';
  }

  if (textMeta && !WriteValue(textMeta, Values + PosOf(GetSlot(2), SlotWidth), cursor, start, end)) return nullptr;
  if (!Ensure(cursor, start, end, nameLength + 64)) return nullptr;
  *cursor++ = L'<';
  *cursor++ = L'/';
  // The name is read again: writing children may have cycled the scratch ring.
  cursor = Put(cursor, GetStringBase(INameIndex));
  *cursor++ = L'>';
  *cursor = 0;
  return cursor;
}

wchar_t* TNodeXml::GetXml(int* length, const wchar_t* prefix, const wchar_t* postfix, int flags) {
  if (!prefix) prefix = EmptyString;
  if (!postfix) postfix = EmptyString;
  size_t prefixLength = wcslen(prefix), postfixLength = wcslen(postfix);
  size_t bytes = (size_t)GetXmlLength(flags) + (prefixLength + postfixLength) * sizeof(wchar_t);
  if (bytes < 4096) bytes = 4096;
  size_t cells = bytes / sizeof(wchar_t);
  if (cells < prefixLength + 1) cells = prefixLength + 1;
  wchar_t* start = (wchar_t*)malloc(cells * sizeof(wchar_t));
  if (!start) return nullptr;
  wchar_t* end = start + cells;
  wchar_t* cursor = wmemcpy(start, prefix, prefixLength) + prefixLength;
  cursor = GetXml(cursor, start, end, flags, 0);
  if (!cursor || !Ensure(cursor, start, end, postfixLength + 1)) {
    free(start);
    return nullptr;
  }
  cursor = wmemcpy(cursor, postfix, postfixLength) + postfixLength;
  *cursor = 0;
  if (length) *length = (int)(cursor - start);
  return start;
}

wchar_t* TTree::GetXml(int* length, int flags) {
  if (!Root) return nullptr;
  return ((TNodeXml*)Root)->GetXml(length, L"<?xml version=\"1.0\"?>", nullptr, flags);
}

char* TTree::GetXml(bool reversed, int* length, int flags) {
  int wideLength = 0;
  wchar_t* wide = GetXml(&wideLength, flags);
  if (!wide) return nullptr;
  char* text = ToUTF8(wide, wideLength, length, reversed);
  free(wide);
  return text;
}

int TTree::SaveXml(const wchar_t* path, int encoding) {
  FILE* file = _wfopen(path, L"wb");
  if (!file) return -1;
  int result = -3;
  if (Root && encoding >= 1 && encoding <= 3) {
    size_t want = 0, wrote = 0;
    if (encoding == 1) {
      int length = 0;
      wchar_t* text = GetXml(&length, 255);
      if (text) {
        // Laid out for 2-byte characters: half of the wide buffer goes out.
        static const unsigned char mark[2] = {0xFF, 0xFE};
        want = 2 + (size_t)length * 2;
        wrote = fwrite(mark, 1, 2, file) + fwrite(text, 1, (size_t)length * 2, file);
        free(text);
        result = wrote < want ? -2 : 0;
      }
    } else {
      int length = 0;
      char* text = GetXml(encoding == 3, &length, 255);
      if (text) {
        static const unsigned char mark[3] = {0xEF, 0xBB, 0xBF};
        want = 3 + (size_t)length;
        wrote = fwrite(mark, 1, 3, file) + fwrite(text, 1, length, file);
        free(text);
        result = wrote < want ? -2 : 0;
      }
    }
  }
  fclose(file);
  return result;
}
