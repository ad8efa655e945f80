// Dates as text: mask tokens, the Format element's texts, the solar calendar, agreement with the C library.
#include <locale.h>

#include <cmath>
#include <cstdint>
#include <ctime>

#include "GridTest.h"

namespace {

// Days since 1970-01-01 of a Gregorian date, without the C library.
long long DaysFromCivil(int y, int m, int d) {
  y -= m <= 2;
  const int era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = (unsigned)(y - era * 400);
  const unsigned doy = (153 * (unsigned)(m + (m > 2 ? -3 : 9)) + 2) / 5 + (unsigned)d - 1;
  return era * 146097LL + (long long)(yoe * 365 + yoe / 4 - yoe / 100 + doy) - 719468;
}

double Ms(int y, int mo, int d, int h = 0, int mi = 4, int s = 5) {
  return (double)((DaysFromCivil(y, mo, d) * 86400 + h * 3600 + mi * 60 + s) * 1000);
}

struct TCase { double Value; const wchar_t *Mask, *Text; };

class DateFormatTest : public CellTest {
protected:
  // Each mask is read from a heap block of its exact size.
  void Check(const std::vector<TCase>& cases) {
    for (const TCase& c : cases) {
      std::vector<wchar_t> mask = Exact(c.Mask ? c.Mask : L"");
      EXPECT_STREQ(row->DateToString(c.Value, c.Mask ? mask.data() : nullptr), c.Text) << (c.Mask ? c.Mask : L"null");
    }
  }
};

TEST_F(DateFormatTest, TokensWithoutAFormatElement) {
  const double t = Ms(2005, 3, 7, 9), noon = Ms(2005, 3, 7, 12), sunday = Ms(1970, 1, 4);
  Check({{0, L"yyyy", L""}, {-0.0, nullptr, L""}, {0.5, nullptr, L"1/1/1970"}, {-500, L"", L"1/1/1970"},
         {-1500, L"yyyy-MM-dd HH:mm:ss", L"1969-12-31 23:59:59"},
         {86400999.9, L"yyyy-MM-dd HH:mm:ss", L"1970-01-02 00:00:00"},
         {t, L"d", L"3/7/2005"}, {t, L"G", L"3/7/2005"}, {t, L"%d", L"7"}, {t, L"dd", L"07"}, {t, L"ddd", L"1"},
         {t, L"dddd", L"1"}, {t, L"ddddd", L"7"}, {t, L"dddddd", L"07"}, {t, L"%M", L"3"}, {t, L"MM", L"03"},
         {t, L"MMM", L"3"}, {t, L"MMMM", L"3"}, {t, L"MMMMM", L"3"}, {sunday, L"ddd MMMM", L"0 1"},
         {t, L"%y", L"5"}, {t, L"yy", L"05"}, {t, L"yyy", L""}, {t, L"yyyy", L"2005"}, {t, L"yyyyy", L"5"},
         {t, L"yyyyyy", L"05"}, {t, L"yyyyyyyy", L"2005"}, {t, L"%H", L"9"}, {t, L"HH", L"09"}, {t, L"HHH", L"9"},
         {t, L"HHHH", L"09"}, {t, L"hhh", L"9"}, {t, L"%m", L"4"}, {t, L"mm", L"04"}, {t, L"mmm", L"4"},
         {t, L"%s", L"5"}, {t, L"ss", L"05"}, {t, L"sss", L"5"}, {t, L"Hh", L"99"},
         // hours above 11 show the AM designator, and 12 o'clock is 0: both kept
         {Ms(2005, 3, 7, 15, 0), L"h:mm tt", L"3:00 AM"}, {Ms(2005, 3, 7, 9, 0), L"h:mm tt", L"9:00 PM"},
         {Ms(2005, 3, 7, 12, 0), L"h:mm tt", L"0:00 AM"}, {Ms(2005, 3, 7, 0, 0), L"hh:mm tt", L"00:00 PM"},
         {Ms(2005, 3, 7, 23), L"h %t", L"11 A"}, {t, L"ttt", L"P"}, {t, L"tttt", L"PM"},
         {noon, L"'at' HH", L"at 12"}, {noon, L"\"d'M\"d", L"d'M7"}, {noon, L"''d", L"7"}, {noon, L"\\at", L"aA"},
         {noon, L"\\\\d", L"\\7"}, {noon, L"%%%d%", L"7"}, {noon, L"'abc", L"abc"}, {noon, L"HH\"yy", L"12yy"},
         {noon, L"HH\\", L"12"}, {noon, L"\\", L"3/7/2005"}, {noon, L"yyyy/MM/dd HH:mm", L"2005/03/07 12:04"}});
}

TEST_F(DateFormatTest, TextsOfTheFormatElement) {
  const double t = Ms(2005, 3, 7, 15), am = Ms(2005, 3, 7, 9), sunday = Ms(1970, 1, 4), saturday = Ms(1970, 1, 3);
  TNode* f = Format();
  Check({{t, L"yyyy/MM/dd HH:mm", L"20050307 1504"}, {t, L"tt", L""}});  // no separators, no designators
  Set(f, {{L"DateSeparator", L"-x"}, {L"TimeSeparator", L"."}, {L"AMDesignator", L"vorm."},
          {L"PMDesignator", L"nachm."}, {L"ShortDayNames", L"Su,Mo,Tu,We,Th,Fr,Sa"},
          {L"LongDayNames", L"Sunday,,Tuesday"}, {L"ShortMonthNames", L"Jan,Feb"}});
  Set(f, {{L"d", L"dd/MM/yy"}, {L"g", L"yyyy"}, {L"x", L"y"}, {L"e", L""}});
  f->SetInt(L"n", 1234);
  Check({{t, L"yyyy/MM/dd HH:mm", L"2005-03-07 15.04"}, {t, L"tt|t", L"vorm.|v"}, {am, L"tt|t", L"nachm.|n"},
         {sunday, L"ddd dddd MMM", L"Su Sunday Jan"}, {saturday, L"ddd[dddd]", L"Sa[]"},
         {t, L"ddd[dddd][MMM][MMMM]", L"Mo[][][]"},  // empty item, short list, no list
         {t, L"d", L"07-03-05"}, {t, L"%d", L"7"}, {t, nullptr, L"2005"}, {t, L"", L"2005"},
         {t, L"G", L"3-7-2005"}, {t, L"x", L"3-7-2005"}, {t, L"e", L"3-7-2005"}, {t, L"n", L"1234"}});
}

TEST_F(DateFormatTest, LongTextsAreCutAndFarValuesGiveNone) {
  const double t = Ms(2005, 3, 7, 15);
  const std::wstring xs(300, L'x'), name(500, L'n'), quoted = L"'" + xs + L"'";
  const std::wstring room(TDataFormat::DateLength, L'x');
  Check({{t, xs.c_str(), room.c_str()}, {t, quoted.c_str(), room.c_str()}});
  Set(Format(), {{L"LongMonthNames", (L"a,b," + name).c_str()}, {L"AMDesignator", name.c_str()}});
  EXPECT_EQ(std::wstring(row->DateToString(t, L"yyyy MMMM")), L"2005 " + name.substr(0, TDataFormat::DateLength - 5));
  EXPECT_EQ(std::wstring(row->DateToString(t, L"tt MMMM")), name.substr(0, TDataFormat::DateLength));
  for (double v : {(double)NAN, (double)INFINITY, (double)-INFINITY, 1e300, 9.3e18, -9.3e18})
    EXPECT_STREQ(row->DateToString(v, L"yyyy"), L"") << v;
  tree.TimeZone = 120 * 60000;  // kept on the tree, never applied
  EXPECT_STREQ(row->DateToString(Ms(2005, 3, 7, 23), L"dd HH"), L"07 23");
}

TEST_F(DateFormatTest, SolarCalendarAtKnownDates) {
  int y = 2026, m = 3, d = 21;
  TDataFormat::GregorianToHirji(y, m, d, y, m, d);  // outputs over the inputs
  EXPECT_TRUE(y == 1405 && m == 1 && d == 1) << y << "-" << m << "-" << d;
  TDataFormat::GregorianToHirji(INT32_MAX, INT32_MAX, INT32_MAX, y, m, d);  // defined, if meaningless
  TDataFormat::GregorianToHirji(INT32_MIN, INT32_MIN, INT32_MIN, y, m, d);
  tree.Hirji = true;  // weekday and time stay; names follow the converted month
  Check({{Ms(2000, 1, 1, 15), L"yyyy-MM-dd HH:mm:ss ddd yy", L"1378-10-11 15:04:05 6 78"}});
  Format()->SetString(L"LongMonthNames", L"m1,m2,m3,m4,m5,m6,m7,m8,m9,m10,m11,m12");
  Check({{Ms(2000, 1, 1, 15), L"MMMM", L"m10"}});
}

TEST_F(DateFormatTest, SolarCalendarAdvancesOneDayAtATime) {
  static const int lengths[11] = {31, 31, 31, 31, 31, 31, 30, 30, 30, 30, 30};
  int py = 0, pm = 0, pd = 0, years = 0, longYears = 0;
  for (long long day = DaysFromCivil(1990, 1, 1); day <= DaysFromCivil(2040, 12, 31); day++) {
    const time_t s = (time_t)(day * 86400);
    struct tm g;
    ASSERT_TRUE(gmtime_r(&s, &g));
    int y, m, d;
    TDataFormat::GregorianToHirji(g.tm_year + 1900, g.tm_mon + 1, g.tm_mday, y, m, d);
    const std::string step = std::to_string(py) + "-" + std::to_string(pm) + "-" + std::to_string(pd);
    if (!py) {
    } else if (y == py && m == pm && d == pd + 1) {
      ASSERT_LE(d, pm == 12 ? 30 : lengths[pm - 1]) << step;
    } else if (y == py && m == pm + 1 && d == 1) {
      ASSERT_EQ(pd, lengths[pm - 1]) << step;
    } else {
      ASSERT_TRUE(y == py + 1 && pm == 12 && m == 1 && d == 1 && (pd == 29 || pd == 30)) << step;
      years++, longYears += pd == 30;
    }
    py = y, pm = m, pd = d;
  }
  EXPECT_EQ(years, 51);
  EXPECT_TRUE(longYears >= 11 && longYears <= 14) << longYears;  // one year in four or five
}

// 10,000 instants from 1970 to 2100 against strftime on gmtime_r, with the C locale's names.
TEST_F(DateFormatTest, AgreesWithTheCLibraryOnRandomInstants) {
  locale_t c = newlocale(LC_ALL_MASK, "C", (locale_t)0);
  ASSERT_TRUE(c);
  auto format = [&](const char* mask, long long seconds) {
    const time_t s = (time_t)seconds;
    struct tm t;
    char text[256];
    const size_t n = gmtime_r(&s, &t) ? strftime_l(text, sizeof text, mask, &t, c) : 0;
    return std::wstring(text, text + n);
  };
  Set(Format(), {{L"DateSeparator", L"/"}, {L"TimeSeparator", L":"}, {L"ShortDayNames", L"Sun,Mon,Tue,Wed,Thu,Fri,Sat"},
                 {L"LongDayNames", L"Sunday,Monday,Tuesday,Wednesday,Thursday,Friday,Saturday"},
                 {L"ShortMonthNames", L"Jan,Feb,Mar,Apr,May,Jun,Jul,Aug,Sep,Oct,Nov,Dec"},
                 {L"LongMonthNames", L"January,February,March,April,May,June,July,August,September,October,"
                                     L"November,December"}});
  uint64_t state = 0x9E3779B97F4A7C15ull;
  const uint64_t end = (uint64_t)DaysFromCivil(2100, 1, 1) * 86400;
  for (int i = 0; i < 10000; i++) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    const long long s = (long long)(state % end);
    const double value = (double)s * 1000 + (double)((state >> 40) % 1000);  // and some milliseconds
    if (value == 0) continue;
    tree.Format = nullptr;
    ASSERT_EQ(std::wstring(row->DateToString(value, L"yyyy-MM-dd HH:mm:ss")), format("%Y-%m-%d %H:%M:%S", s)) << s;
    tree.Format = this->format;
    ASSERT_EQ(std::wstring(row->DateToString(value, L"dddd, ddd dd/MMMM/MMM yyyy HH:mm:ss yy")),
              format("%A, %a %d/%B/%b %Y %H:%M:%S %y", s))
        << s;
  }
  freelocale(c);
}

}  // namespace
