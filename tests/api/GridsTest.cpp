// The registry through the C surface: indices, sessions, search, and what a
// host gets for indices that hold no grid.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <unistd.h>

#include "ApiHelpers.h"
#include "api/Grids.h"

namespace {

class GridsTest : public ::testing::Test {
protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }

  static std::vector<int> Indexes() {
    std::vector<int> out(GetIndexes(nullptr, 0));
    GetIndexes(out.data(), (int)out.size());
    return out;
  }
};

TEST_F(GridsTest, IndicesStartAtZeroAndTheTableGrowsPastSixteen) {
  for (int i = 0; i < 17; i++) ASSERT_EQ(Create(GridDoc()), i);
  EXPECT_EQ(GetIndexes(nullptr, 0), 17);
  // The grown slots are empty, not garbage.
  for (int i = 17; i < 32; i++) EXPECT_EQ(SessionOf(i), "<null>") << i;
  for (int i = 17; i < 32; i++) ASSERT_EQ(Create(GridDoc()), i);
  EXPECT_EQ(Create(GridDoc()), 32);
  EXPECT_EQ(GetIndexes(nullptr, 0), 33);
}

TEST_F(GridsTest, TheLowestFreeIndexIsReusedWithANewSession) {
  for (int i = 0; i < 5; i++) Create(GridDoc());
  const std::string old = SessionOf(3);
  EXPECT_EQ(DeleteGrid(3), 0);
  EXPECT_EQ(DeleteGrid(3), -1);
  EXPECT_EQ(Indexes(), (std::vector<int>{0, 1, 2, 4}));
  // The generator is seeded with the time in seconds, so the new session
  // differs once the clock has moved on.
  for (time_t start = time(nullptr); time(nullptr) == start;) usleep(20000);
  ASSERT_EQ(Create(GridDoc()), 3);
  EXPECT_NE(SessionOf(3), old);
  EXPECT_NE(SessionOf(3), SessionOf(2));
}

TEST_F(GridsTest, IndicesWithoutAGridGiveTheNoGridResults) {
  ASSERT_EQ(Create(GridDoc()), 0);
  ASSERT_EQ(DeleteGrid(0), 0);
  for (int index : {-1, 0, 5, 1000, -2147483647 - 1, 2147483647}) {
    SCOPED_TRACE(index);
    EXPECT_EQ(SaveA(index, "<Grid/>"), -1);
    EXPECT_EQ(SaveEx(index, L"<Grid/>", 1), -1);
    EXPECT_EQ(SaveToFileA(index, "/tmp/never-written.xml", 0), -1);
    EXPECT_EQ(UpdateGridA(index, "<Grid/>"), -1);
    EXPECT_EQ(DeleteGrid(index), -1);
    EXPECT_EQ(SetGridLocaleA(index, ""), -1);
    EXPECT_FALSE(Take(GetBody(index, L"<Grid/>")));
    EXPECT_FALSE(TakeA(GetPageA(index, "<Grid/>")));
    EXPECT_FALSE(TakeA(GetExportA(index, "<Grid/>")));
    EXPECT_FALSE(TakeA(GetCellsA(index, "r1", 0, "A", "")));
    EXPECT_FALSE(TakeA(GetDataA(index)));
    EXPECT_FALSE(Take(GetData(index)));
    EXPECT_FALSE(TakeA(GetChangesA(index, 1)));
    EXPECT_FALSE(TakeA(GetLastIdA(index)));
    EXPECT_FALSE(Take(GetGridSession(index)));
  }
  EXPECT_EQ(static_cast<TGrid*>(nullptr), Grids.Get(-1));
  EXPECT_EQ(static_cast<TGrid*>(nullptr), Grids.Get(16));
}

TEST_F(GridsTest, FailedCreationLeavesTheRegistryUntouched) {
  EXPECT_EQ(CreateGrid(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(CreateGridA("", " \n\t", nullptr, "", nullptr, ""), -1);
  EXPECT_EQ(CreateGridA("<Grid><Cfg</Grid>", nullptr, nullptr, nullptr, nullptr, nullptr), -3);
  EXPECT_EQ(CreateGridA("/nonexistent/dir/layout.xml", nullptr, nullptr, nullptr, nullptr, nullptr), -1);
  const std::string empty = testing::TempDir() + "sarvendo-empty.xml";
  fclose(fopen(empty.c_str(), "wb"));
  EXPECT_EQ(CreateGridA(empty.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr), -2);
  remove(empty.c_str());
  // A failure in any one document fails the grid.
  EXPECT_EQ(CreateGridA(GridDoc().c_str(), "<Grid", nullptr, nullptr, nullptr, nullptr), -3);
  EXPECT_EQ(GetIndexes(nullptr, 0), 0);
  EXPECT_EQ(Create(GridDoc()), 0);
}

TEST_F(GridsTest, GeneratedSessionsAreIndexStampAndTwoRandomNumbers) {
  Create(GridDoc());
  const int index = Create(GridDoc());
  const long now = (long)time(nullptr);
  const std::string session = SessionOf(index);
  int number = -1, stamp = 0, first = -1, second = -1, end = 0;
  ASSERT_EQ(sscanf(session.c_str(), "%d_%d_%d_%d%n", &number, &stamp, &first, &second, &end), 4) << session;
  EXPECT_EQ(end, (int)session.size()) << session;
  EXPECT_EQ(number, 1);
  EXPECT_LE(std::labs(stamp - now), 2);
  EXPECT_GE(first, 0);
  EXPECT_GE(second, 0);
  // The session is written into the grid's IO as well.
  const std::string data = TakeA(GetDataA(index)).value_or("");
  EXPECT_NE(data.find("Session=\"" + session + "\""), std::string::npos) << data;
  EXPECT_EQ(FindGridA(("<Grid><IO Session='" + session + "'/></Grid>").c_str()), index);
}

TEST_F(GridsTest, AnExplicitSessionIsKeptAndSharedSessionsFindTheLowestIndex) {
  ASSERT_EQ(Create(GridDoc()), 0);
  ASSERT_EQ(Create(GridDoc("abc")), 1);
  ASSERT_EQ(Create(GridDoc("abc")), 2);
  EXPECT_EQ(SessionOf(1), "abc");
  EXPECT_EQ(Take(GetGridSession(2)).value_or(L""), L"abc");
  EXPECT_EQ(FindGrid(L"<Grid><IO Session='abc'/></Grid>"), 1);
  DeleteGrid(1);
  EXPECT_EQ(FindGridA("<Grid><IO Session='abc'/></Grid>"), 2);
  // The later document of CreateGrid's load order wins: the first argument last.
  const std::string a = GridDoc("first"), b = GridDoc("second");
  const int both = CreateGridA(a.c_str(), b.c_str(), nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(SessionOf(both), "first");
}

TEST_F(GridsTest, UpdateGridChangesTheSessionOrFallsBackToTheIndex) {
  Create(GridDoc());
  const int index = Create(GridDoc("before"));
  ASSERT_EQ(UpdateGridA(index, "<Grid><IO Session='after'/></Grid>"), 0);
  EXPECT_EQ(SessionOf(index), "after");
  EXPECT_EQ(FindGridA("<Grid><IO Session='after'/></Grid>"), index);
  EXPECT_EQ(FindGridA("<Grid><IO Session='before'/></Grid>"), -2);
  ASSERT_EQ(UpdateGrid(index, L"<Grid><IO Session=''/></Grid>"), 0);
  EXPECT_EQ(SessionOf(index), "1");
  EXPECT_EQ(UpdateGridA(index, "<Grid><IO"), -3);
  EXPECT_EQ(SessionOf(index), "1");
  EXPECT_EQ(UpdateGridA(index, nullptr), 0);
}

TEST_F(GridsTest, FindGridTellsBadDocumentsFromMissingSessions) {
  Create(GridDoc("s1"));
  EXPECT_EQ(FindGrid(nullptr), -3);
  EXPECT_EQ(FindGridA(""), -3);
  EXPECT_EQ(FindGridA("<Grid><IO"), -3);
  EXPECT_EQ(FindGridA("<Grid/>"), -2);
  EXPECT_EQ(FindGridA("<Grid><IO/></Grid>"), -2);
  EXPECT_EQ(FindGridA("<Grid><IO Session=''/></Grid>"), -2);
  EXPECT_EQ(FindGridA("<Grid><IO Session='s2'/></Grid>"), -2);
  EXPECT_EQ(FindGridA("<Grid><Cfg/><IO Session='s1'/></Grid>"), 0);
}

TEST_F(GridsTest, FindGridsComparesCfgAttributesByTypeAndValue) {
  ASSERT_EQ(Create(GridDoc("", "a")), 0);
  ASSERT_EQ(Create(GridDoc("", "b")), 1);
  ASSERT_EQ(Create(GridDoc("", "a")), 2);
  ASSERT_EQ(Create("<Grid><Cfg Kind='a' Paging='3'/></Grid>"), 3);
  int out[8] = {-9, -9, -9, -9, -9, -9, -9, -9};
  EXPECT_EQ(FindGridsA(out, 0, "<Grid><Cfg Kind='a'/></Grid>", 0, 0), 3);
  EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{0, 2, 3, -9}));
  EXPECT_EQ(FindGrids(out, 0, L"<Grid><Cfg Kind='a' Paging='3'/></Grid>", 0, 0), 1);
  EXPECT_EQ(out[0], 3);
  // A number is not a text: the types must agree.
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><Cfg Paging='x3'/></Grid>", 0, 0), 0);
  // Only a leading id is left out of the comparison.
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><Cfg id='filter' Kind='b'/></Grid>", 0, 0), 1);
  // No attributes match all; no Cfg matches none; null out only counts.
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><Cfg/></Grid>", 0, 0), 4);
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><IO/></Grid>", 0, 0), 0);
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><Cfg", 0, 0), -3);
  // A positive max stops the walk.
  out[1] = -9;
  EXPECT_EQ(FindGridsA(out, 1, "<Grid><Cfg/></Grid>", 0, 0), 1);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[1], -9);
}

TEST_F(GridsTest, FindGridsWithIdleSecondsLeavesOutRecentlyUsedGrids) {
  ASSERT_EQ(Create(GridDoc()), 0);
  ASSERT_EQ(Create(GridDoc()), 1);
  TGrid* grid = Grids.Get(0);
  ASSERT_NE(grid, nullptr);
  grid->LastAccess -= 100;
  Grids.Back(grid);
  int out[2] = {-9, -9};
  EXPECT_EQ(FindGridsA(out, 0, "<Grid><Cfg/></Grid>", 60, 0), 1);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><Cfg/></Grid>", 0, 0), 2);
  // Using a grid makes it recent again; GetLastId deliberately doesn't.
  FreeStringA(GetLastIdA(0));
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><Cfg/></Grid>", 60, 0), 1);
  FreeStringA(GetDataA(0));
  EXPECT_EQ(FindGridsA(nullptr, 0, "<Grid><Cfg/></Grid>", 60, 0), 0);
}

TEST_F(GridsTest, FindGridsStrAJoinsIndicesOrGivesNull) {
  for (const char* kind : {"x", "y", "x", "y", "y", "x"}) Create(GridDoc("", kind));
  EXPECT_EQ(TakeA(FindGridsStrA(0, "<Grid><Cfg Kind='x'/></Grid>", 0, 0)).value_or("<null>"), "0,2,5");
  EXPECT_EQ(TakeA(FindGridsStrA(2, "<Grid><Cfg Kind='x'/></Grid>", 0, 0)).value_or("<null>"), "0,2");
  EXPECT_EQ(TakeA(FindGridsStrA(300, "<Grid><Cfg Kind='y'/></Grid>", 0, 0)).value_or("<null>"), "1,3,4");
  EXPECT_FALSE(TakeA(FindGridsStrA(0, "<Grid><Cfg Kind='z'/></Grid>", 0, 0)));
  EXPECT_FALSE(TakeA(FindGridsStrA(0, "<Grid><Cfg", 0, 0)));
}

TEST_F(GridsTest, GetIndexesListsLiveGridsAndCapsAtAPositiveMax) {
  for (int i = 0; i < 6; i++) Create(GridDoc());
  DeleteGrid(0);
  DeleteGrid(4);
  EXPECT_EQ(Indexes(), (std::vector<int>{1, 2, 3, 5}));
  int out[3] = {-9, -9, -9};
  EXPECT_EQ(GetIndexes(out, 2), 4);
  EXPECT_EQ(std::vector<int>(out, out + 3), (std::vector<int>{1, 2, -9}));
}

TEST_F(GridsTest, GetSessionDiffersForAnAbsentAttributeOnly) {
  EXPECT_EQ(Take(GetSession(L"<Grid><IO Session='s'/></Grid>")).value_or(L"<null>"), L"s");
  EXPECT_EQ(TakeA(GetSessionA("<Grid><IO Session='s\xC3\xA9'/></Grid>")).value_or("<null>"), "s\xC3\xA9");
  EXPECT_EQ(Take(GetSession(L"<Grid><IO Session=''/></Grid>")).value_or(L"<null>"), L"");
  EXPECT_EQ(TakeA(GetSessionA("<Grid><IO Session=''/></Grid>")).value_or("<null>"), "");
  // Absent: null in the wide form, the empty text in the 8-bit one.
  EXPECT_FALSE(Take(GetSession(L"<Grid><IO/></Grid>")));
  EXPECT_EQ(TakeA(GetSessionA("<Grid><IO/></Grid>")).value_or("<null>"), "");
  for (const char* bad : {"<Grid/>", "<Grid><IO", ""}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(TakeA(GetSessionA(bad)));
  }
  EXPECT_FALSE(Take(GetSession(L"<Grid/>")));
  EXPECT_FALSE(Take(GetSession(nullptr)));
}

TEST_F(GridsTest, ClearEmptiesTheTableAndIndicesStartAgain) {
  for (int i = 0; i < 20; i++) Create(GridDoc());
  Clear();
  EXPECT_EQ(GetIndexes(nullptr, 0), 0);
  EXPECT_FALSE(TakeA(GetGridSessionA(3)));
  EXPECT_EQ(Create(GridDoc()), 0);
}

}  // namespace
