#include "grid/Get.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "tree/UTF.h"

namespace {

// Grows the buffer unless n more cells fit behind the cursor.
bool Ensure(wchar_t*& cursor, wchar_t*& start, wchar_t*& end, size_t n) {
  if (cursor + n < end) return true;
  return n < (size_t)INT_MAX - 256 && TNodeXml::Realloc(cursor, start, end, (int)n);
}

wchar_t* Put(wchar_t* cursor, const wchar_t* text) {
  size_t length = wcslen(text);
  return wmemcpy(cursor, text, length) + length;
}

// Checks room, then copies.
wchar_t* PutText(wchar_t* cursor, wchar_t*& start, wchar_t*& end, const wchar_t* text) {
  if (!cursor || !Ensure(cursor, start, end, wcslen(text) + 64)) return nullptr;
  return Put(cursor, text);
}

wchar_t* Finish(wchar_t* cursor, wchar_t* start, int* outLength) {
  *cursor = 0;
  if (outLength) *outLength = (int)(cursor - start);
  return start;
}

// 32-bit key of a number: truncated, clamped to the signed range.
int NumberKey(double value) {
  if (value > 2147483647.0) return 0x7FFFFFFF;
  if (value < -2147483647.0) return (int)0x80000001;
  if (value != value) return 0;
  return (int)value;
}

// The first two characters at once, biased so that signed order is unsigned order.
int TextKey(const wchar_t* text) {
  uint32_t first = (uint32_t)text[0], second = text[0] ? (uint32_t)text[1] : 0;
  return (int)((first << 16) + second - 0x80000000u);
}

// Length of a text as a record stores it (perhaps unaligned); plain turns
// false when it holds a character that XML escapes.
size_t StoredTextLength(const unsigned char* p, bool& plain) {
  size_t length = 0;
  for (;; length++, p += sizeof(wchar_t)) {
    wchar_t c;
    memcpy(&c, p, sizeof c);
    if (!c) return length;
    if (c == L'&' || c == L'<' || c == L'>' || c == L'"') plain = false;
  }
}

// Records that hold text point their Full at their own text when the value
// wasn't a string; the array moves when it grows, so these follow it.
void RebaseFull(TSortNode* nodes, int count) {
  for (int i = 0; i < count; i++)
    if ((nodes[i].Type[0] & 0x80) && (nodes[i].Type[0] & 0x7F) != TString) nodes[i].Full[0] = nodes[i].Value[0].Text;
}

}  // namespace

// ---- body ----

wchar_t* TGridGet::GetBody(const wchar_t* xml, int* outLength) {
  if (outLength) *outLength = 0;
  ClearSort();
  ClearGroup();
  ClearFilters();
  if (!AddCfg(xml)) return nullptr;
  if (ServerPaging) UpdatePipeline();
  else RemovePages();
  ResolveFocused();
  ClearChanges();
  int indexes[MaxPageAttributes + MaxNameAttributes];
  const wchar_t* names[MaxPageAttributes + MaxNameAttributes];
  int nameCount = GetPageAttributes(indexes, names);
  if (!ServerPaging || Cfg->GetInt(L"PageLength") == 1) return GetPlainBody(outLength);
  return GetCompressedBody(indexes, names, nameCount, outLength);
}

// Runs each stage only as far as its settings changed since the last run.
void TGridGet::UpdatePipeline() {
  int stateIndex = Tree->GetIndex(L"UpdateState", 0);
  bool updated = stateIndex != -1 && Body->GetInt(stateIndex) != 0;
  if (updated) Body->SetNull(stateIndex);
  bool sortChanged = UpdateSort() || (updated && SortCount > 0);
  bool filterChanged = UpdateFilter() || (updated && FilterCount > 0);
  bool groupChanged = UpdateGroup() || (updated && GroupCount > 0);
  bool pagesDone = Body->GetInt(L"PagesCreated") != 0;
  if (!sortChanged && !filterChanged && !groupChanged && pagesDone) return;
  // The root rows, listed once, stand in for their links in most stages:
  // after a sort they lie scattered in memory, and a list can be read ahead.
  std::vector<TNode*> rows;
  std::vector<size_t> starts;
  RemovePages(rows);
  // Calculation follows the links: with its heavier work per row, measured
  // faster that way than over the list.
  if (!pagesDone) CalcChildren(Body->FirstChild);
  if (filterChanged) Filter(&rows);
  if (groupChanged) {
    Group();
    // Grouping moved the rows under group rows: the list starts again.
    rows.clear();
    if (Body->FirstChild) CollectChildren(Body->FirstChild, rows);
  }
  if (groupChanged || filterChanged) CalcChildren(Body->FirstChild);
  if (sortChanged || groupChanged) Sort(&rows);
  CreatePages(rows, starts);
  CalcPages(rows, starts);
}

// Turns Focused from a row id into the page number, and FocusedPos into the
// line of the row on that page.
void TGridGet::ResolveFocused() {
  const wchar_t* id = Cfg->GetString(L"Focused");
  if (!*id) return;
  TNode* row = Tree->GetElem(std::wstring(id).c_str());
  if (!row) {
    Cfg->SetNull(L"Focused");
    return;
  }
  TNode* page = nullptr;
  TNode* focus = FindFocus(row, page);
  if (focus == Body) {
    Cfg->SetNull(L"Focused");
    return;
  }
  if (!page) return;
  int pos = GetFocusedPos(focus, page);
  Cfg->SetInt(L"Focused", page->GetParentPos());
  Cfg->SetInt(L"FocusedPos", pos);
}

// The highest node on the way from row up to its page that is really visible.
// Only a present Expanded of 0 collapses: rows and pages without the attribute
// show their children, as pages never carry it. The page itself is not a row
// and is not tested.
TNode* TGridGet::FindFocus(TNode* row, TNode*& page) {
  TNode* focus = row;
  page = nullptr;
  if (row == Body) return focus;
  for (TNode* p = row; p; p = p->Parent) {
    if (p->Parent == Body) {
      page = p;
      break;
    }
    if (p->Has(IExpandedIndex) && p->GetInt(IExpandedIndex) == 0) focus = p;
    if (p->Flags & FFiltered) {
      TNode* sibling = p->Prev;
      while (sibling && (sibling->Flags & FFiltered)) sibling = sibling->Prev;
      focus = sibling ? sibling : p->Parent;
    }
  }
  return focus;
}

// Lines above the focus on its page, counting every visible row before it.
int TGridGet::GetFocusedPos(TNode* focus, TNode* page) {
  int count = 0;
  for (TNode* node = focus; node && node != page; node = node->Parent) {
    for (TNode* sibling = node->Prev; sibling; sibling = sibling->Prev) count += GetVisibleHeight(sibling);
    count++;
  }
  return count > 0 ? count - 1 : count;
}

int TGridGet::GetVisibleHeight(TNode* row) {
  if (!row || (row->Flags & FFiltered)) return 0;
  if (row->Has(IExpandedIndex) && row->GetInt(IExpandedIndex) == 0) return 1;
  int height = 1;
  for (TNode* child = row->FirstChild; child; child = child->Next) height += GetVisibleHeight(child);
  return height;
}

// The attributes that go out per page: those of the last page (the first 500
// only), then the page names of the sort columns. Names are the name table's
// own keys, which stay put; indexes are full name indexes, good on any page.
int TGridGet::GetPageAttributes(int* indexes, const wchar_t** names) {
  int count = 0;
  TNode* last = Body->LastChild;
  if (last) {
    int* own;
    int n = last->GetIndexes(own);
    if (n > MaxPageAttributes) n = MaxPageAttributes;
    int list[MaxPageAttributes];
    memcpy(list, own, n * sizeof(int));  // own lies in the scratch ring
    bool spec = last->Flags & FSpec;
    for (int i = 0; i < n; i++) {
      const wchar_t* name = Tree->GetName(list[i], spec ? 2 : 1);
      if (!name || *name == L'#' || !wcscmp(name, L"Calculated")) continue;
      names[count] = name;
      indexes[count++] = Tree->GetIndex(name, 0);
    }
  }
  if (Cfg->GetInt(L"NoPager")) return count;
  // The template's first digit is the sort column, the second runs 0 to 2,
  // exactly as the names are formed here; the pages write Name<kind><column>.
  for (int i = 0; i < SortCount && i < TGridSort::MaxSortCols; i++) {
    for (int j = 0; j < 3; j++) {
      wchar_t name[] = L"Name__";
      name[4] = (wchar_t)(L'0' + i);
      name[5] = (wchar_t)(L'0' + j);
      int index = Tree->GetIndex(name, 0);
      if (index == -1) continue;
      bool known = false;
      for (int k = 0; k < count && !known; k++) known = !wcscmp(names[k], name);
      if (known) continue;
      const wchar_t* key = Tree->GetName(index, 1);
      if (!key) key = Tree->GetName(index, 2);
      if (!key) continue;
      names[count] = key;
      indexes[count++] = index;
    }
  }
  return count;
}

wchar_t* TGridGet::GetPlainBody(int* outLength) {
  int flags = ServerChildPaging ? 4 : 6;
  size_t cells = (size_t)((TNodeXml*)Body)->GetXmlLength(flags) / sizeof(wchar_t) + 1024;
  wchar_t* start = (wchar_t*)malloc(cells * sizeof(wchar_t));
  if (!start) return nullptr;
  wchar_t* end = start + cells;
  wchar_t* cursor = Put(start, L"<Grid>");
  cursor = IO ? ((TNodeXml*)IO)->GetXml(cursor, start, end, 0, 0) : PutText(cursor, start, end, L"<IO Result='0'/>");
  if (cursor) cursor = ((TNodeXml*)Body)->GetXml(cursor, start, end, flags, 0);
  cursor = PutText(cursor, start, end, L"</Grid>");
  if (!cursor) {
    free(start);
    return nullptr;
  }
  return Finish(cursor, start, outLength);
}

wchar_t* TGridGet::GetCompressedBody(const int* indexes, const wchar_t* const* names, int nameCount,
                                     int* outLength) {
  size_t pageCount = Body->GetChildCount();
  size_t bytes = pageCount * ((size_t)nameCount * 50 + 10) + 2048;
  wchar_t* start = (wchar_t*)malloc(bytes);
  if (!start) return nullptr;
  wchar_t* end = start + bytes / sizeof(wchar_t);
  wchar_t* cursor = Put(start, L"<Grid>");
  cursor = IO ? ((TNodeXml*)IO)->GetXml(cursor, start, end, 0, 0) : PutText(cursor, start, end, L"<IO Result='0'/>");
  if (cursor) cursor = WriteCfg(cursor, start, end);
  cursor = PutText(cursor, start, end, L"<Root CDef=\"");
  if (cursor) cursor = PutText(cursor, start, end, Body->FirstChild ? Body->FirstChild->GetString(L"CDef") : L"");
  cursor = PutText(cursor, start, end, L"\"/><Par><P Name=\"P\" List=\"");
  for (int i = 0; i < nameCount && cursor; i++) {
    if (i) cursor = PutText(cursor, start, end, L",");
    cursor = PutText(cursor, start, end, names[i]);
  }
  cursor = PutText(cursor, start, end, L"\"/></Par><Body>");
  if (cursor) cursor = WritePageTable(cursor, start, end, indexes, nameCount);
  cursor = PutText(cursor, start, end, L"</Body></Grid>");
  if (!cursor) {
    free(start);
    return nullptr;
  }
  return Finish(cursor, start, outLength);
}

// Cfg of the compressed response; values go out as they are, unescaped.
wchar_t* TGridGet::WriteCfg(wchar_t* cursor, wchar_t*& start, wchar_t*& end) {
  cursor = PutText(cursor, start, end, L"<Cfg");
  TIds ids;
  const wchar_t* lastId = GetLastId(&ids);
  if (*lastId) {
    cursor = PutText(cursor, start, end, L" LastId=\"");
    cursor = PutText(cursor, start, end, lastId);
    cursor = PutText(cursor, start, end, L"\"");
  }
  static const wchar_t* const focus[] = {L"Focused", L"FocusedPos", L"FocusedCol"};
  for (const wchar_t* name : focus) {
    int index = Tree->GetIndex(name, 0);
    if (index == -1 || !Cfg->Has(index)) continue;
    cursor = PutText(cursor, start, end, L" ");
    cursor = PutText(cursor, start, end, name);
    cursor = PutText(cursor, start, end, L"=\"");
    cursor = PutText(cursor, start, end, Cfg->GetString(index));
    cursor = PutText(cursor, start, end, L"\"");
  }
  // RootCount is an integer read as 0 when absent, and always goes out.
  wchar_t number[24];
  TData::IntToString(Cfg->GetInt(L"RootCount"), number);
  cursor = PutText(cursor, start, end, L" RootCount=\"");
  cursor = PutText(cursor, start, end, number);
  return PutText(cursor, start, end, L"\"/>");
}

// One line of values per page, behind a header with the page count.
wchar_t* TGridGet::WritePageTable(wchar_t* cursor, wchar_t*& start, wchar_t*& end, const int* indexes,
                                  int nameCount) {
  int length = Cfg->GetInt(L"PageLength");
  if (length < 1) length = 20;
  long long rootCount = Cfg->GetInt(L"RootCount");
  long long expected = (rootCount + length - 1) / length;
  if (expected < 1) expected = 1;
  bool wide = expected >= 500 && nameCount > 0;
  wchar_t separator = wide ? L'>' : L'"';
  if (!Ensure(cursor, start, end, 64)) return nullptr;
  if (wide) *cursor++ = L'>';
  cursor = Put(cursor, L"\"\"P\"");
  size_t field = cursor - start;
  wmemset(cursor, L' ', 8);
  cursor += 8;
  int pages = 0;
  for (TNode* page = Body->FirstChild; page; page = page->Next, pages++) {
    if (!Ensure(cursor, start, end, (size_t)nameCount * 50 + 1024)) return nullptr;
    if (wide && pages % 100 == 0) *cursor++ = L'"';
    for (int i = 0; i < nameCount; i++) {
      if (!Ensure(cursor, start, end, 64)) return nullptr;
      *cursor++ = separator;
      cursor = WritePageValue(cursor, start, end, page, indexes[i]);
      if (!cursor) return nullptr;
    }
  }
  // The count fills its field of 8 with a blank behind it; a count too long
  // for the field is cut rather than written past it.
  wchar_t number[24];
  int digits = (int)(TData::IntToString(pages, number) - number);
  wmemcpy(start + field, number, digits < 7 ? digits : 7);
  return cursor;
}

wchar_t* TGridGet::WritePageValue(wchar_t* cursor, wchar_t*& start, wchar_t*& end, TNode* page, int index) {
  unsigned char* p = nullptr;
  int type = page->GetType(index, p);
  // Numbers are read where the lookup found them, own or the default's.
  if (type == TByte) return TData::IntToString((signed char)*p, cursor);
  if (type == TInt) {
    int value;
    memcpy(&value, p, sizeof value);
    return TData::IntToString(value, cursor);
  }
  if (type == TDouble) {
    double value;
    memcpy(&value, p, sizeof value);
    return TData::ToString(value, cursor, Tree->Precision);
  }
  if (type != TString) return cursor;
  // Most page values are short texts that need no escaping; those are copied
  // straight from the record, which may hold them unaligned.
  bool plain = true;
  size_t length = StoredTextLength(p, plain);
  if (!Ensure(cursor, start, end, length * 6 + 64)) return nullptr;
  if (!plain) return TNodeXml::StringToXml(page->GetString(index), cursor);
  memcpy(cursor, p, length * sizeof(wchar_t));
  return cursor + length;
}

// ---- page ----

wchar_t* TGridGet::GetPage(const wchar_t* xml, int* outLength) {
  if (outLength) *outLength = 0;
  if (!xml || !*xml || !Body) return nullptr;
  std::unique_ptr<TTree> request(new TTree());
  if (!request->SetXml(xml) || !request->Root) return nullptr;
  TNode* body = request->Root->GetChildByName(L"Body", false);
  TNode* query = body ? body->FirstChild : nullptr;
  if (!query) return nullptr;
  TNode* target = nullptr;
  int pos = -1;
  if (query->Has(L"Pos")) {
    pos = query->GetInt(L"Pos");
    if (pos >= 0) target = Body->GetChild(pos);
  } else if (query->Has(L"id")) {
    target = Tree->GetElem(query->GetString(L"id"));
  }
  if (!target) return nullptr;
  std::wstring name = target->GetName();
  target->SetString(INameIndex, L"B");
  int posIndex = pos >= 0 ? Tree->GetIndex(L"Pos", 1) : -1;
  if (posIndex != -1) target->SetInt(posIndex, pos);
  wchar_t* text = ((TNodeXml*)target)->GetXml(outLength, L"<Grid><Body>", L"</Body></Grid>",
                                              ServerChildPaging ? 68 : 70);
  if (posIndex != -1) target->SetNull(posIndex);
  target->SetString(INameIndex, name.c_str(), (int)name.size());
  return text;
}

// ---- attribute ----

wchar_t* TGridGet::FillAttr(wchar_t* out, TNode* node, const wchar_t* name) {
  *out++ = L' ';
  out = Put(out, name);
  *out++ = L'=';
  *out++ = L'"';
  for (const wchar_t* value = node->GetString(name); *value; value++) {
    switch (*value) {
      case L'&': out = Put(out, L"&amp;"); break;
      case L'<': out = Put(out, L"&lt;"); break;
      case L'"': out = Put(out, L"&quot;"); break;
      default: *out++ = *value;
    }
  }
  *out++ = L'"';
  return out;
}

// ---- cell query ----

wchar_t* TGridGet::GetCells(const wchar_t* rowId, const wchar_t* column, int flags, const wchar_t* format,
                            int* outLength) {
  if (outLength) *outLength = 0;
  wchar_t* start = (wchar_t*)malloc(CellBlock * sizeof(wchar_t));
  if (!start) return nullptr;
  wchar_t* end = start + CellBlock;
  wchar_t* cursor = start;
  *cursor = 0;
  TNode* row = rowId && *rowId ? Tree->GetElem(rowId) : nullptr;
  if (!column || !*column) return Finish(cursor, start, outLength);
  int col = Tree->GetIndex(column, 0);
  int mode = flags & 3;
  if (mode == 0) {
    if (row) cursor = PutText(cursor, start, end, GetCellText(row, column, col, flags));
    return cursor ? Finish(cursor, start, outLength) : (free(start), nullptr);
  }
  // A group row given up by its parent has no siblings to list.
  if (mode == 1 && (!row || !row->Parent || row->Parent == DetachedRows)) return Finish(cursor, start, outLength);

  // format: separator, then optionally name, separator, value of a row filter.
  wchar_t separator = format && *format ? format[0] : L'|';
  int filterIndex = -1;
  std::wstring filterValue;
  if (format && *format) {
    const wchar_t* name = format + 1;
    const wchar_t* split = wcschr(name, separator);
    if (split) {
      // An unknown attribute name has index -1 and so filters nothing.
      filterIndex = Tree->GetIndex(std::wstring(name, split - name).c_str(), 0);
      filterValue = split + 1;
    }
  }

  int capacity = 256, count = 0;
  TSortNode* nodes = (TSortNode*)malloc(capacity * sizeof(TSortNode));
  bool ok = nodes != nullptr;
  const wchar_t* value = filterValue.c_str();
  if (ok && mode == 1) ok = GetCells(row->Parent, col, flags, filterIndex, value, nodes, count, capacity);
  if (ok && mode >= 2) {
    flags |= 256;
    for (TNode* page = Body->FirstChild; page && ok; page = page->Next)
      ok = GetCells(page, col, flags, filterIndex, value, nodes, count, capacity);
    static const wchar_t* const fixed[] = {L"Head", L"Foot"};
    for (int i = 0; i < 2 && ok && mode == 3; i++)
      if (TNode* section = Tree->Root->GetChildByName(fixed[i], false))
        ok = GetCells(section, col, flags, filterIndex, value, nodes, count, capacity);
  }
  TSortNode** order = ok ? (TSortNode**)malloc((count ? count : 1) * sizeof(TSortNode*)) : nullptr;
  if (!order) {
    FreeCells(nodes, count);
    free(start);
    return nullptr;
  }
  for (int i = 0; i < count; i++) order[i] = nodes + i;
  if (flags & (8 | 16 | 32)) qsort(order, count, sizeof(TSortNode*), Compare);

  for (int i = 0; i < count && cursor; i++) {
    if ((flags & 32) && i && Compare(&order[i], &order[i - 1]) == 0) continue;
    const wchar_t* text = GetCellText(order[i]->Node, column, col, flags);
    if ((flags & 64) && !*text) continue;
    if (!Ensure(cursor, start, end, wcslen(text) + 2)) {
      cursor = nullptr;
      break;
    }
    *cursor++ = separator;
    cursor = Put(cursor, text);
    // Keeps a reserve free; the text written so far goes along with the block.
    if (end - cursor < CellReserve && !TNodeXml::Realloc(cursor, start, end, (int)(end - start))) cursor = nullptr;
  }
  free(order);
  FreeCells(nodes, count);
  if (!cursor) {
    free(start);
    return nullptr;
  }
  return Finish(cursor, start, outLength);
}

// Stored text, or with flag 4 the text as the row displays it.
const wchar_t* TGridGet::GetCellText(TNode* row, const wchar_t* column, int col, int flags) {
  return flags & 4 ? row->GetStringFormat(column, col) : row->GetString(col);
}

bool TGridGet::GetCells(TNode* parent, int column, int flags, int filterIndex, const wchar_t* filterValue,
                        TSortNode*& nodes, int& count, int& capacity) {
  if (!parent) return true;
  for (TNode* row = parent->FirstChild; row; row = row->Next) {
    if (filterIndex != -1 && !row->CmpString(filterIndex, filterValue)) continue;
    if (count >= capacity) {
      TSortNode* grown = (TSortNode*)realloc(nodes, (size_t)capacity * 2 * sizeof(TSortNode));
      if (!grown) return false;
      nodes = grown;
      capacity *= 2;
      RebaseFull(nodes, count);
    }
    FillCellRecord(nodes[count], row, column, flags);
    count++;
    if ((flags & 256) && !GetCells(row, column, flags, filterIndex, filterValue, nodes, count, capacity))
      return false;
  }
  return true;
}

void TGridGet::FillCellRecord(TSortNode& record, TNode* row, int column, int flags) {
  memset(&record, 0, sizeof(record));
  record.Node = row;
  record.Count = 1;
  unsigned char* p = nullptr;
  int type = row->GetType(column, p);
  if ((flags & 24) == 8) {
    double number = 0;
    if (type == TByte || type == TInt) number = row->GetInt(column);
    else if (type == TDouble) number = row->GetDouble(column);
    else if (type == TString) number = wcstod(row->GetString(column), nullptr);
    record.Key[0] = type == TByte || type == TInt ? (int)number : NumberKey(number);
    record.Value[0].Number = number;
    record.Type[0] = (unsigned char)type;
    return;
  }
  wchar_t* text = record.Value[0].Text;
  const int max = TSortNode::TextLength - 1;
  // Numbers are written whole into room of their own, then cut to the sort text.
  wchar_t number[257];  // the double formatter writes up to 256 characters
  number[0] = 0;
  record.Full[0] = text;
  if (type == TByte || type == TInt) TData::IntToString(row->GetInt(column), number);
  else if (type == TDouble) TData::ToString(row->GetDouble(column), number, Tree->Precision);
  if (type == TString) {
    const wchar_t* stored = row->StringAt(p);
    CopySortString(text, stored, max, (flags & 24) == 16 ? SortLocale | SortNoCase : 0, LocaleTable, nullptr,
                   nullptr);
    record.Full[0] = stored;
    // An unaligned value was copied to the scratch ring, which the walk
    // comes round; such a record keeps its own copy.
    if (stored != (const wchar_t*)p) {
      size_t length = wcslen(stored);
      wchar_t* copy = (wchar_t*)malloc((length + 1) * sizeof(wchar_t));
      if (copy) {
        wmemcpy(copy, stored, length + 1);
        record.Full[0] = record.Full[1] = copy;
      }
    }
  } else {
    wcsncpy(text, number, max);
  }
  text[max] = 0;
  record.Locale = LocaleTable;
  record.Key[0] = TextKey(text);
  record.Type[0] = (unsigned char)(type | 0x80);
  // Read as written: the text flags are SortString with SortLocale in every
  // text mode; the locale only acts where a table is set.
  record.Flags[0] = SortString | SortLocale;
}

void TGridGet::FreeCells(TSortNode* nodes, int count) {
  if (!nodes) return;
  for (int i = 0; i < count; i++) free(const_cast<wchar_t*>(nodes[i].Full[1]));
  free(nodes);
}

// ---- log and saved document ----

wchar_t* TGridGet::GetChanges(int flags) {
  wchar_t* text = Changes && Changes->FirstChild ? ((TNodeXml*)Changes)->GetXml(nullptr, nullptr, nullptr, 255)
                                                 : nullptr;
  if (flags & 1) ClearChanges();
  return text;
}

// The whole tree, writer flags 255: every row, filtered or not, with _0F.
wchar_t* TGridGet::SaveToData(int* outLength) { return Tree->GetXml(outLength, 255); }

wchar_t* TGridGet::GetData(int flags, int* outLength) {
  if (outLength) *outLength = 0;
  if (!Tree->Root || !Body || !Cfg) return nullptr;
  if (flags < 4) flags |= 4 | 8 | 16;
  // The first page goes out without its CDef, and a paged body whose sort
  // settings don't go along is marked for joining when it is read back.
  int pagesIndex = Tree->GetIndex(L"PagesCreated", 1), cdefIndex = Tree->GetIndex(L"CDef", 1);
  int pagesCreated = Body->GetInt(pagesIndex);
  TNode* first = Body->FirstChild;
  bool hasCDef = first && first->HasBase(cdefIndex);
  std::wstring cdef = hasCDef ? first->GetStringBase(cdefIndex) : L"";
  if (hasCDef) first->SetNull(cdefIndex);
  std::wstring head = L"<Grid>";
  if ((flags & 4) && !(flags & 64)) {
    head += L"<IO";
    if (IO) AppendAttr(head, IO, L"Session");
    else head += L" Session=\"\"";
    head += L"/>";
  }
  if ((flags & 8) && !(flags & 64)) head += GetShortCfg();
  if ((flags & 8) && !(flags & 32)) head += GetFilters();
  if (pagesCreated && !(flags & 8) && (flags & 96) != 96) Body->SetInt(pagesIndex, -1);
  std::vector<std::pair<wchar_t*, int>> sections;
  bool written = GetSections(flags, sections);
  // Put back, PagesCreated even where it was absent, then as 0.
  Body->SetInt(pagesIndex, pagesCreated);
  if (hasCDef) first->SetString(cdefIndex, cdef.c_str());
  if (!written) return nullptr;
  size_t length = head.size() + 7;
  for (auto& section : sections) length += section.second;
  wchar_t* text = (wchar_t*)malloc((length + 50) * sizeof(wchar_t));
  wchar_t* cursor = text ? wmemcpy(text, head.data(), head.size()) + head.size() : nullptr;
  for (auto& section : sections) {
    if (cursor) cursor = wmemcpy(cursor, section.first, section.second) + section.second;
    free(section.first);
  }
  if (!cursor) return nullptr;
  cursor = Put(cursor, L"</Grid>");
  return Finish(cursor, text, outLength);
}

bool TGridGet::GetSections(int flags, std::vector<std::pair<wchar_t*, int>>& texts) {
  for (TNode* section = Tree->Root->FirstChild; section; section = section->Next) {
    const wchar_t* name = section->GetName();
    int bit = !wcscmp(name, L"Body") ? 16 : !wcscmp(name, L"Head") || !wcscmp(name, L"Foot") ? 32 : 64;
    if (!(flags & bit)) continue;
    int length = 0;
    wchar_t* text = ((TNodeXml*)section)->GetXml(&length, nullptr, nullptr, 255);
    if (!text) {
      for (auto& made : texts) free(made.first);
      texts.clear();
      return false;
    }
    texts.emplace_back(text, length);
  }
  return true;
}

void TGridGet::AppendAttr(std::wstring& out, TNode* node, const wchar_t* name) {
  // An escaped character takes at most six ("&quot;").
  std::vector<wchar_t> room(wcslen(name) + wcslen(node->GetString(name)) * 6 + 8);
  wchar_t* end = FillAttr(room.data(), node, name);
  out.append(room.data(), end - room.data());
}

std::wstring TGridGet::GetShortCfg() {
  static const wchar_t* const names[] = {L"Sort",         L"Group",          L"SearchExpression",
                                         L"SearchAction", L"SearchType",     L"SearchMethod",
                                         L"SearchDefs",   L"SearchCols",     L"RootCount"};
  std::wstring out = L"<Cfg";
  for (const wchar_t* name : names) AppendAttr(out, Cfg, name);
  return out + L"/>";
}

// One Filter per filter row; each filter cell of the grid leaves a blank, and
// the cells of this row their value and operator.
std::wstring TGridGet::GetFilters() {
  std::wstring out = L"<Filters>";
  int count = FilterCount < 0 ? 0 : FilterCount < MaxFilterCells ? FilterCount : MaxFilterCells;
  for (int r = 0; r < FilterRows.Count; r++) {
    out += L"<Filter";
    AppendAttr(out, FilterRows.Items[r], L"id");
    for (int i = 0; i < count; i++) {
      out += L' ';
      if (FilterCells[i].Row == r) AppendFilterCell(out, FilterCells[i]);
    }
    out += L"/>";
  }
  return out + L"</Filters>";
}

void TGridGet::AppendFilterCell(std::wstring& out, const TFilterCell& cell) {
  const wchar_t* name = Tree->GetName(cell.Col, 0);
  if (!name) name = L"";
  out += name;
  out += L"=\"";
  if (cell.IsString) {
    const size_t cells = sizeof cell.Value.Text / sizeof(wchar_t);
    std::wstring text(cell.Value.Text, wcsnlen(cell.Value.Text, cells));
    std::vector<wchar_t> room(text.size() * 6 + 1);
    out.append(room.data(), TNodeXml::StringToXml(text.c_str(), room.data()) - room.data());
  } else {
    wchar_t number[260];  // the double formatter writes up to 256 characters
    out.append(number, TData::ToString(cell.Value.Numbers[0], number, Tree->Precision) - number);
  }
  out += L"\" ";
  out += name;
  out += L"Filter=\"";
  wchar_t number[24];
  out.append(number, TData::IntToString(cell.Operator, number) - number);
  out += L'"';
}

// ---- file ----

namespace {

// The name as the wide file functions narrow it: the low byte of each
// character, at most 1024 of them.
std::string NarrowPath(const wchar_t* name) {
  std::string path;
  for (int i = 0; i < 1024 && name[i]; i++) path += (char)(name[i] & 0xFF);
  return path;
}

// A new file beside path, open for writing; -1 when none can be made.
int OpenBeside(const std::string& path, std::string& temporary) {
  static std::atomic<unsigned> counter(0);
  for (int attempt = 0; attempt < 100; attempt++) {
    temporary = path + ".~" + std::to_string(getpid()) + "_" + std::to_string(counter++);
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

}  // namespace

// Written to a file beside the target and renamed over it: a write that
// fails leaves the earlier file whole. The target is tested first, so that
// a name that can't be written still gives -1 and leaves no file behind.
int TGridGet::SaveToFile(const wchar_t* fileName, int flags) {
  if (!fileName || !*fileName) return -1;
  std::string path = NarrowPath(fileName);
  struct stat link;
  if (lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
    // A link is written through, as opening it would.
    if (char* real = realpath(path.c_str(), nullptr)) {
      path = real;
      free(real);
    }
  }
  struct stat target;
  bool exists = stat(path.c_str(), &target) == 0;
  if (exists && !S_ISREG(target.st_mode)) {
    // A device or pipe is written as it stands: there is nothing to rename.
    FILE* file = fopen(path.c_str(), "wb");
    if (!file) return -1;
    int result = WriteData(file, flags);
    return fclose(file) != 0 && result == 0 ? -2 : result;
  }
  if (exists) {
    int probe = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (probe < 0) return -1;
    close(probe);
  }
  std::string temporary;
  int fd = OpenBeside(path, temporary);
  if (fd < 0) return -1;
  if (exists) fchmod(fd, target.st_mode & 07777);
  FILE* file = fdopen(fd, "wb");
  if (!file) {
    close(fd);
    unlink(temporary.c_str());
    return -1;
  }
  int result = WriteData(file, flags);
  if (result == 0 && fsync(fileno(file)) != 0) result = -2;
  if (fclose(file) != 0 && result == 0) result = -2;
  if (result == 0 && rename(temporary.c_str(), path.c_str()) != 0) result = -1;
  if (result != 0) unlink(temporary.c_str());
  return result;
}

// 4-byte units with flag 1, else UTF-8; no mark and no XML prefix.
int TGridGet::WriteData(FILE* file, int flags) {
  int length = 0;
  wchar_t* text = GetData(flags, &length);
  if (!text) return -3;
  size_t want, wrote;
  if (flags & 1) {
    want = (size_t)length;
    wrote = fwrite(text, sizeof(wchar_t), want, file);
  } else {
    int bytes = 0;
    char* utf8 = ToUTF8(text, length, &bytes, false);
    if (!utf8) {
      free(text);
      return -3;
    }
    want = (size_t)bytes;
    wrote = fwrite(utf8, 1, want, file);
    free(utf8);
  }
  free(text);
  return wrote == want && fflush(file) == 0 ? 0 : -2;
}
