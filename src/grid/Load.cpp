#include "grid/Load.h"
#include <cmath>
#include <cwchar>
#include <vector>
#include "tree/Data.h"

namespace {

// Row sections by number; the walk decides a row's place by this number.
enum { HeadSection, FootSection, SolidSection, FiltersSection };
const wchar_t* const RowSections[] = {L"Head", L"Foot", L"Solid", L"Filters"};

int RowSectionNumber(const std::wstring& name) {
  for (int i = 0; i < 4; i++)
    if (name == RowSections[i]) return i;
  return -1;
}

// Sections whose children are keyed by Name: Defs for names beginning with D.
bool IsTableSection(const std::wstring& name) {
  return name == L"LeftCols" || name == L"RightCols" || name == L"Cols" || name == L"Def" || name == L"DefCols";
}

// Column attributes that a row reads through R under "<column><attribute>".
const wchar_t* const CellAttributes[] = {L"Type", L"Format", L"ExportFormat", L"IntFormat", L"Related", L"Refresh"};

// 10 to the power of a layout Precision. An int holds no more than 10^9, so
// larger exponents stop there; negative ones truncate to 0 as pow gives.
int PowerOfTen(int exponent) {
  if (exponent > 9) exponent = 9;
  return (int)std::pow(10.0, exponent);
}

}  // namespace

TGridLoad::TGridLoad()
    : Tree(new TTree()), Cols(1023), Defs(1023), Cfg(nullptr), Body(nullptr), IO(nullptr), ServerPaging(false),
      ServerChildPaging(false), LocaleTable(nullptr) {}

TGridLoad::~TGridLoad() { delete Tree; }

// ---- documents ----

int TGridLoad::Load(const wchar_t** documents, int count) {
  if (!documents || count < 1) return -1;
  for (int i = 0; i < count; i++) {
    int result = LoadDocument(documents[i]);
    if (result < 0) return result;
  }
  return 0;
}

int TGridLoad::LoadDocument(const wchar_t* document) {
  if (!document || !*document) return 0;
  while (*document >= 1 && *document <= 32) document++;
  // A leading '&' is a whole document in escaped form.
  if (*document == L'<' || *document == L'&') return Tree->SetXml(document) ? 0 : -3;
  int result = Tree->LoadXml(document);
  return result < 0 ? result : 0;
}

// ---- layout ----

void TGridLoad::Update() {
  if (!Tree->Root) return;
  FixedRows.Clear();
  FilterRows.Clear();
  SolidRows.Clear();
  Defs.Clear();
  Cols.Clear();
  TNodetable sections(2047);
  WalkSections(sections);
  AddToolbar(Section(sections, L"Toolbar"));
  AddHeader(Section(sections, L"Header"));
  ReadLang(Section(sections, L"Lang"));
  Body = TakeSection(sections, L"Body", false);
  if (!Body->FirstChild) Body->AppendChild(Tree->CreateElement(L"B"));
  Cfg = TakeSection(sections, L"Cfg", false);
  IO = TakeSection(sections, L"IO", true);
  TNode* columnDefault = TakeDefault(sections, L"C");
  CompleteColumns(columnDefault);
  TNode* rowDefault = TakeDefault(sections, L"R");
  CopyCellAttributes(rowDefault);
  LinkDefaults(columnDefault, rowDefault);
  FlattenDefaults();
  PrepareFirstPage(Section(sections, L"Header"), Section(sections, L"Root"));
  ReadPaging();
  CopySession();
  ApplyPagesCreated();
  // Looked up, not created: a layout without CDef reads it as absent.
  int cdefIndex = Tree->GetIndex(L"CDef", 0);
  WireBody(cdefIndex);
  MergeFilterRows();
  WireFixedRows(cdefIndex);
  ReadTreeSettings();
  InitCalc();
  InitGroup();
}

void TGridLoad::WalkSections(TNodetable& sections) {
  TNode* next;
  for (TNode* section = Tree->Root->FirstChild; section; section = next) {
    // Work on a section only inserts before it or removes it, so its
    // successor stays valid.
    next = section->Next;
    std::wstring name = section->GetName();
    int number = RowSectionNumber(name);
    if (IsTableSection(name))
      MergeTableSection(section, name, sections);
    else if (number >= 0)
      SortRowSection(section, number, sections);
    else
      MergeOrdinarySection(section, name, sections);
  }
}

// Columns and defaults: a known name merges into the element that has it, a
// new one joins the first section of this name.
void TGridLoad::MergeTableSection(TNode* section, const std::wstring& name, TNodetable& sections) {
  TNodetable& table = name[0] == L'D' ? Defs : Cols;
  TNode* earlier = Section(sections, name.c_str());
  TNode* next;
  for (TNode* item = section->FirstChild; item; item = next) {
    next = item->Next;
    int entry = table.Get(item->GetString(L"Name"), 1);
    TNode* known = table.GetNode(entry);
    if (known) {
      MergeOver(known, item, true);
      continue;
    }
    if (earlier) earlier->AppendChild(item);
    table.SetNode(entry, item);
  }
  KeepOrDropSection(section, name, sections);
}

void TGridLoad::KeepOrDropSection(TNode* section, const std::wstring& name, TNodetable& sections) {
  if (section->FirstChild || section == Tree->Root->FirstChild)
    sections.SetNode(name.c_str(), section);
  else
    TNode::Delete(section);
}

void TGridLoad::SortRowSection(TNode* section, int number, TNodetable& sections) {
  TNode* next;
  for (TNode* row = section->FirstChild; row; row = next) {
    next = row->Next;
    PlaceRow(row, section, number, sections);
  }
  if (!section->FirstChild && section != Tree->Root->FirstChild) TNode::Delete(section);
}

// Moves one row of a row section to the section its kind asks for. Target
// sections are made right before the section being walked, so even rows that
// stay in their kind of section change element.
void TGridLoad::PlaceRow(TNode* row, TNode* section, int number, TNodetable& sections) {
  std::wstring kind = row->GetString(L"Kind");
  if (kind.empty()) kind = row->GetName();
  wchar_t letter = kind.empty() ? 0 : kind[0];
  if (number == FiltersSection && (letter == L'I' || letter == L'H')) letter = L'F';
  bool hasCells = *row->GetString(L"Cells") != 0;
  const wchar_t* headOrFoot = number == FootSection ? L"Foot" : L"Head";
  const wchar_t* target = L"Solid";
  const wchar_t* newKind = kind.c_str();  // null: Kind is removed
  TNodeList* list = hasCells ? &SolidRows : nullptr;
  switch (letter) {
    case L'I':
    case L'H':
      target = RowSections[number];
      if (number != SolidSection) {
        list = &FixedRows;
        newKind = nullptr;
      }
      break;
    case L'F':
      target = headOrFoot;
      list = &FilterRows;
      newKind = L"Filter";
      break;
    case L'U':
      target = headOrFoot;
      list = nullptr;
      newKind = L"User";
      break;
  }
  TNode* place = Section(sections, target);
  if (!place) {
    place = Tree->Root->InsertBefore(Tree->CreateElement(target), section);
    sections.SetNode(target, place);
  }
  place->AppendChild(row);
  int kindIndex = row->GetIndex(L"Kind", 0);
  if (!newKind) {
    if (row->HasBase(kindIndex)) row->SetNull(kindIndex);
  } else if (*newKind && !row->CmpString(kindIndex, newKind)) {
    row->SetString(L"Kind", newKind);
  }
  if (list) list->Add(row);
}

// Any other section: the first of a name stays; a repeat gives it its
// attributes and only its first child, and dies with the rest.
void TGridLoad::MergeOrdinarySection(TNode* section, const std::wstring& name, TNodetable& sections) {
  TNode* first = Section(sections, name.c_str());
  if (!first) {
    sections.SetNode(name.c_str(), section);
    return;
  }
  if (section->FirstChild) first->AppendChild(section->FirstChild);
  MergeOver(first, section, true);
}

TNode* TGridLoad::Section(TNodetable& sections, const wchar_t* name) { return sections.GetNode(name, 0); }

TNode* TGridLoad::TakeSection(TNodetable& sections, const wchar_t* name, bool first) {
  TNode* section = Section(sections, name);
  if (section) return section;
  section = Tree->CreateElement(name);
  section = first ? Tree->Root->PrependNode(section) : Tree->Root->AppendChild(section);
  sections.SetNode(name, section);
  return section;
}

// The Formula copy needs only the section: a toolbar without Cells is not
// calculated, so the copy is harmless there.
void TGridLoad::AddToolbar(TNode* toolbar) {
  if (!toolbar) return;
  if (*toolbar->GetString(L"Cells")) SolidRows.Add(toolbar);
  std::wstring formula = toolbar->GetString(L"Formula");
  if (!formula.empty()) toolbar->SetString(L"FormulaFormula", formula.c_str());
}

void TGridLoad::AddHeader(TNode* header) {
  if (header && header->GetInt(L"Calculate") != 0) FixedRows.Add(header);
}

void TGridLoad::ReadLang(TNode* lang) {
  if (!lang) return;
  Tree->Format = lang->GetChildByName(L"Format", false);
  if (Tree->Format) Tree->Hirji = Tree->Format->GetInt(L"Hirji") != 0;
}

// The default of this name, made under the Def section when it is missing.
TNode* TGridLoad::TakeDefault(TNodetable& sections, const wchar_t* name) {
  TNode* item = Defs.GetNode(name, 0);
  if (item) return item;
  item = Tree->CreateElement(L"D");
  item->SetString(L"Name", name);
  TakeSection(sections, L"Def", false)->AppendChild(item);
  Defs.SetNode(name, item);
  return item;
}

void TGridLoad::CompleteColumns(TNode* columnDefault) {
  if (!*columnDefault->GetString(L"Type")) columnDefault->SetString(L"Type", L"Text");
  for (int i = 0; i < Cols.GetCount(); i++)
    if (TNode* column = Cols.GetNode(i)) column->Merge(columnDefault, 0);
}

// A row reads its cells' type and format through R, as "<column><attribute>".
void TGridLoad::CopyCellAttributes(TNode* rowDefault) {
  for (int i = 0; i < Cols.GetCount(); i++) {
    TNode* column = Cols.GetNode(i);
    if (!column) continue;
    std::wstring name = column->GetString(L"Name");
    for (const wchar_t* attribute : CellAttributes)
      CopyCellAttribute(rowDefault, column, name, column->GetIndex(attribute, 0));
    int* found;
    int count = column->GetIndexes(found);
    std::vector<int> indexes(found, found + count);  // the list lives in the scratch ring
    int mode = column->Flags & FSpec ? 2 : 1;
    for (int index : indexes) {
      const wchar_t* attribute = Tree->GetName(index, mode);
      if (attribute && !wcsncmp(attribute, L"Enum", 4)) CopyCellAttribute(rowDefault, column, name, index);
    }
  }
}

void TGridLoad::CopyCellAttribute(TNode* rowDefault, TNode* column, const std::wstring& columnName, int index) {
  if (!column->HasBase(index)) return;
  const wchar_t* attribute = Tree->GetName(index, column->Flags & FSpec ? 2 : 1);
  if (!attribute) return;
  int target = rowDefault->GetIndex(columnName.c_str(), attribute, 1);
  rowDefault->Copy(target, column, index, 0, false);
}

// Each default gets the one named by its Def (R when empty) as base. A link
// that would close a circle is not made: flattening walks the chains.
void TGridLoad::LinkDefaults(TNode* columnDefault, TNode* rowDefault) {
  for (int i = 0; i < Defs.GetCount(); i++) {
    TNode* item = Defs.GetNode(i);
    if (!item || item == columnDefault || item == rowDefault || item->Base) continue;
    std::wstring name = item->GetString(IDefIndex);
    TNode* base = Defs.GetNode(name.empty() ? L"R" : name.c_str(), 0);
    if (base && !LeadsTo(base, item)) item->Base = base;
  }
}

bool TGridLoad::LeadsTo(TNode* from, TNode* target) const {
  for (TData* step = from; step; step = step->Base)
    if (step == target) return true;
  return false;
}

void TGridLoad::FlattenDefaults() {
  for (int i = 0; i < Defs.GetCount(); i++) {
    TNode* item = Defs.GetNode(i);
    if (!item) continue;
    for (TData* ancestor = item->Base; ancestor; ancestor = ancestor->Base) item->Merge(ancestor, 0);
  }
}

void TGridLoad::PrepareFirstPage(TNode* header, TNode* rootSection) {
  TNode* page = Body->FirstChild;
  std::wstring ownId = page->GetId();
  if (header) page->Merge(header, 0);
  if (rootSection) page->Merge(rootSection, 0);
  // The page gives up its id; an entry left in the id table would outlive it.
  if (!ownId.empty() && Tree->GetElem(ownId.c_str()) == page) Tree->RemoveId(ownId.c_str());
  if (page->HasBase(IIdIndex)) page->SetNull(IIdIndex);
  if (!page->Has(L"CDef")) page->SetString(L"CDef", L"R");
}

void TGridLoad::ReadPaging() {
  ServerPaging = Cfg->GetInt(L"Paging") == 3;
  ServerChildPaging = Cfg->GetInt(L"ChildPaging") == 3;
}

// A saved grid says whether its rows still stand cut into pages (1), so that
// the levels take over their state, or must be joined again (-1).
void TGridLoad::ApplyPagesCreated() {
  int index = Body->GetIndex(L"PagesCreated", 0);
  int state = Body->GetInt(index);
  if (state == -1) {
    RemovePages();
    if (Body->HasBase(index)) Body->SetNull(index);
  } else if (state == 1) {
    UpdateSort();
    UpdateFilter();
    UpdateGroup();
  }
}

void TGridLoad::WireBody(int cdefIndex) {
  for (TNode* page = Body->FirstChild; page; page = page->Next)
    for (TNode* row = page->FirstChild; row; row = row->Next)
      if (!row->Base) UpdateRow(row, IDefIndex, cdefIndex);
}

// Filter rows without id are one row written in parts: the first keeps
// them all. Rows with an id stay as they are.
void TGridLoad::MergeFilterRows() {
  if (FilterRows.Count <= 1) return;
  TNode* first = nullptr;
  int kept = 0;
  for (int i = 0; i < FilterRows.Count; i++) {
    TNode* row = FilterRows.Items[i];
    if (!*row->GetId() && first) {
      MergeOver(first, row, true);
      continue;
    }
    if (!*row->GetId()) first = row;
    FilterRows.Items[kept++] = row;
  }
  FilterRows.Count = kept;
}

void TGridLoad::WireFixedRows(int cdefIndex) {
  TNode* fixed = Defs.GetNode(L"Fixed", 0);
  WireList(FilterRows, fixed, cdefIndex);
  WireList(FixedRows, fixed, cdefIndex);
}

void TGridLoad::WireList(TNodeList& list, TNode* fixed, int cdefIndex) {
  for (int i = 0; i < list.Count; i++) {
    TNode* row = list.Items[i];
    if (fixed && !*row->GetStringBase(IDefIndex)) row->SetString(IDefIndex, L"Fixed");
    UpdateRow(row, IDefIndex, cdefIndex);
  }
}

void TGridLoad::ReadTreeSettings() {
  int index = Cfg->GetIndex(L"MaxChildrenOffline", 0);
  if (Cfg->Has(index)) Tree->MaxChildrenOffline = Cfg->GetInt(index);
  index = Cfg->GetIndex(L"Precision", 0);
  if (Cfg->Has(index)) Tree->Precision = PowerOfTen(Cfg->GetInt(index));
}

// ---- rows ----

void TGridLoad::UpdateRow(TNode* row, int defIndex, int cdefIndex) {
  row->Base = DefaultOf(row, defIndex, cdefIndex);
  if (ServerChildPaging) row->Flags &= (unsigned char)~FState;
  for (TNode* child = row->FirstChild; child; child = child->Next) UpdateRow(child, defIndex, cdefIndex);
}

TNode* TGridLoad::DefaultOf(TNode* row, int defIndex, int cdefIndex) {
  const wchar_t* name = row->GetStringBase(defIndex);
  if (!*name && row->Parent) name = row->Parent->GetString(cdefIndex);
  TNode* found = *name ? Defs.GetNode(name, 0) : nullptr;
  return found ? found : Defs.GetNode(L"R", 0);
}

// ---- merging ----

void TGridLoad::MergeOver(TNode* target, TNode* source, bool destroySource) {
  std::wstring oldId = target->GetId();
  target->Merge(source, 1);
  if (destroySource) TNode::Delete(source);
  Rekey(target, oldId);
}

void TGridLoad::Rekey(TNode* node, const std::wstring& oldId) {
  std::wstring id = node->GetId();
  if (id != oldId && !oldId.empty() && Tree->GetElem(oldId.c_str()) == node) Tree->RemoveId(oldId.c_str());
  // The destroyed source may have taken the entry of this id with it.
  if (!id.empty() && !Tree->GetElem(id.c_str())) Tree->Ids.SetNode(id.c_str(), node);
}
