// Several threads creating, finding, querying and deleting grids at once,
// with one grid shared by all. Bounded in rounds and in time; meant to run
// under ThreadSanitizer as well as AddressSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ApiHelpers.h"

namespace {

using Clock = std::chrono::steady_clock;

const int Workers = 4;
const int Rounds = 150;
const auto TimeLimit = std::chrono::seconds(20);

struct TStress {
  int Shared = -1;
  Clock::time_point Deadline = Clock::now() + TimeLimit;
  std::atomic<int> Failures{0};
  std::atomic<int> Running{Workers};
  std::atomic<int> RoundsDone{0};

  void Check(bool ok) {
    if (!ok) Failures++;
  }

  void Work(int worker) {
    for (int round = 0; round < Rounds && Clock::now() < Deadline; round++) {
      const std::string session = "w" + std::to_string(worker) + "_" + std::to_string(round);
      const std::string find = "<Grid><IO Session='" + session + "'/></Grid>";
      const int index = Create(GridDoc(session, "stress"));
      Check(index >= 0);
      Check(FindGridA(find.c_str()) == index);
      Check(SessionOf(index) == session);
      Check(FindGridsA(nullptr, 0, "<Grid><Cfg Kind='stress'/></Grid>", 0, 0) >= 1);
      Check(UpdateGridA(index, "<Grid><Cfg Round='1'/></Grid>") == 0);
      Check(TakeA(GetDataA(index)).has_value());
      FreeStringA(GetBodyA(index, "<Grid><Cfg Sort='A'/></Grid>"));
      FreeStringA(GetChangesA(index, 1));
      FreeStringA(GetLastIdA(index));
      Check(SetGridLocaleA(index, "") == 0);
      // The shared grid is only used, never deleted.
      Check(UpdateGridA(Shared, "<Grid><Cfg Touched='1'/></Grid>") == 0);
      Check(TakeA(GetDataA(Shared)).has_value());
      Check(SessionOf(Shared) == "shared");
      Check(DeleteGrid(index) == 0);
      Check(FindGridA(find.c_str()) == -2);
      RoundsDone++;
    }
    Running--;
  }

  // Walks all grids while they come and go.
  void Scan() {
    while (Running > 0) {
      Check(GetIndexes(nullptr, 0) >= 1);
      FreeStringA(FindGridsStrA(0, "<Grid><Cfg/></Grid>", 0, 0));
      int out[8];
      Check(FindGridsA(out, 8, "<Grid><Cfg Kind='stress'/></Grid>", 0, 0) >= 0);
      Check(FindGridA("<Grid><IO Session='shared'/></Grid>") == Shared);
      for (int i = 0; i < 8; i++) FreeStringA(GetGridSessionA(i));
    }
  }
};

TEST(StressTest, ThreadsCreateFindQueryAndDeleteAtOnce) {
  Clear();
  TStress stress;
  stress.Shared = Create(GridDoc("shared", "shared"));
  ASSERT_EQ(stress.Shared, 0);
  std::vector<std::thread> threads;
  for (int i = 0; i < Workers; i++) threads.emplace_back([&stress, i] { stress.Work(i); });
  threads.emplace_back([&stress] { stress.Scan(); });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(stress.Failures.load(), 0);
  EXPECT_GT(stress.RoundsDone.load(), Workers);
  EXPECT_EQ(GetIndexes(nullptr, 0), 1);
  Clear();
}

}  // namespace
