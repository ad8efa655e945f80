// Keyed sorting of large sibling groups against plain qsort over Compare: the
// same order, ties included, on random rows full of ties, long texts sharing
// their prefix, NaN, -0 and values beyond the key range.
#include <random>

#include "GridTest.h"

namespace {

class SortKeyedTest : public GridTest {
protected:
  // Random values of one kind; pools are small so that ties abound.
  static std::wstring Value(std::mt19937& random, int kind) {
    static const wchar_t* const names[] = {L"anna", L"Anna", L"boris", L"Carla", L"carla ", L"- d", L"d",
                                           L"", L"10", L"9", L"\u00e9mile", L"\U0001F600x", L"zz"};
    static const wchar_t* const numbers[] = {L"nan", L"-0", L"0", L"1e300", L"-1e300", L"abc", L"2.5", L"-2.5",
                                             L"3000000000", L"7", L"-7", L"0.1"};
    const std::wstring head = L"the same nineteen c";
    std::uniform_int_distribution<int> pick(0, 99);
    int p = pick(random);
    switch (kind) {
      case 0: return names[p % 13];
      case 1: return head + (p % 3 ? L"Tail" : L"tail") + std::to_wstring(p % 4);
      case 2: return p < 20 ? numbers[p % 12] : std::to_wstring(p % 17 - 8);
      default: return std::to_wstring(p % 5);
    }
  }
  // Rows whose A, B and C cells mix the kinds per row; every tenth row of the
  // first level holds a sibling group of its own.
  static std::wstring Rows(unsigned seed, int count, int aKinds) {
    std::mt19937 random(seed);
    std::wstring rows;
    int id = 0;
    for (int i = 0; i < count; i++) {
      auto row = [&]() {
        return L"<I id='r" + std::to_wstring(++id) + L"' A='" + Value(random, random() % aKinds) + L"' B='" +
               Value(random, 2) + L"' C='" + Value(random, 3) + L"'";
      };
      rows += row();
      if (i % 10) {
        rows += L"/>";
        continue;
      }
      rows += L">";
      for (int k = 0; k < 70; k++) rows += row() + L"/>";
      rows += L"</I>";
    }
    return rows;
  }
  // Every row's id in document order after the sort, children behind parents.
  static void Order(TNode* parent, std::wstring& out) {
    for (TNode* row = parent->FirstChild; row; row = row->Next) {
      out += std::wstring(row->GetId()) + L",";
      Order(row, out);
    }
  }
  std::wstring Sorted(const std::wstring& layout, const std::wstring& rows, const wchar_t* sort, bool plain) {
    Create(L"<Grid><Cfg Sorting='1'/><Cols>" + layout + L"</Cols><Body><B>" + rows + L"</B></Body></Grid>");
    grid->LocaleTable = locale.data();
    grid->Cfg->SetString(L"Sort", sort);
    grid->UpdateSort();
    if (plain) grid->SortPlain();
    else grid->Sort();
    std::wstring out;
    Order(grid->Body->FirstChild, out);
    return out;
  }
  void SetUp() override {
    GridTest::SetUp();
    locale.resize(65536);
    for (int c = 0; c < 65536; c++) locale[c] = (unsigned long long)(c ^ 0x20) << 48;
  }
  std::vector<unsigned long long> locale;
};

TEST_F(SortKeyedTest, SameOrderAsPlainSort) {
  const wchar_t* const layouts[] = {
      L"<C Name='A'/><C Name='B' Type='Float'/><C Name='C' Type='Int'/>",
      L"<C Name='A' CaseSensitive='1'/><C Name='B' Type='Int'/><C Name='C'/>",
      L"<C Name='A' WhiteChars=' -' CharCodes='|a|b'/><C Name='B' NumberSort='0'/><C Name='C' Type='Int'/>",
      L"<C Name='A' LocaleCompare='1'/><C Name='B' Type='Float'/><C Name='C' Type='Int'/>",
      L"<C Name='A' Type='Int'/><C Name='B' Type='Date'/><C Name='C' NumberSort='0'/>",
  };
  const wchar_t* const sorts[] = {L"A", L"-A", L"B", L"-B", L"C", L"A,B", L"-B,A", L"C,-A,B", L"-C,B"};
  unsigned seed = 1;
  for (int aKinds : {1, 2, 4})
    for (const wchar_t* layout : layouts)
      for (const wchar_t* sort : sorts) {
        std::wstring rows = Rows(seed++, 150, aKinds);
        std::wstring expected = Sorted(layout, rows, sort, true);
        EXPECT_EQ(Sorted(layout, rows, sort, false), expected) << layout << " " << sort << " kinds " << aKinds;
      }
}

// A NaN ties with every value of its key, so no key may stand for the column;
// the order then is whatever plain qsort makes of it.
TEST_F(SortKeyedTest, NaNLeavesTheOrderToCompare) {
  std::wstring rows;
  for (int i = 0; i < 200; i++)
    rows += L"<I id='r" + std::to_wstring(i) + L"' B='" + (i % 7 ? std::to_wstring(i % 3) + L".5" : L"nan") + L"'/>";
  for (const wchar_t* sort : {L"B", L"-B"}) {
    std::wstring layout = L"<C Name='B' Type='Float'/>";
    EXPECT_EQ(Sorted(layout, rows, sort, false), Sorted(layout, rows, sort, true)) << sort;
  }
}

}  // namespace
