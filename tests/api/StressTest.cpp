// Several threads creating, finding, querying and deleting grids at once,
// with one grid shared by all and one thread walking the table meanwhile.
// Bounded in rounds and in time; meant to run under ThreadSanitizer as well.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ApiHelpers.h"

namespace {

using Clock = std::chrono::steady_clock;

// Assertions from several threads are safe in gtest with pthreads.
TEST(StressTest, ThreadsCreateFindQueryAndDeleteAtOnce) {
  const int workers = 4, rounds = 150;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(20);
  std::atomic<int> running{workers}, roundsDone{0};
  Clear();
  const int shared = Create(GridDoc("shared", "shared"));
  ASSERT_EQ(shared, 0);

  auto work = [&](int worker) {
    for (int round = 0; round < rounds && Clock::now() < deadline; round++, roundsDone++) {
      const std::string session = "w" + std::to_string(worker) + "_" + std::to_string(round);
      const int index = Create(GridDoc(session, "stress"));
      EXPECT_GE(index, 0);
      EXPECT_EQ(FindGridA(SessionDoc(session).c_str()), index);
      EXPECT_EQ(SessionOf(index), session);
      EXPECT_GE(FindGridsA(nullptr, 0, "<Grid><Cfg Kind='stress'/></Grid>", 0, 0), 1);
      EXPECT_EQ(UpdateGridA(index, "<Grid><Cfg Round='1'/></Grid>"), 0);
      EXPECT_TRUE(TakeA(GetDataA(index)));
      FreeStringA(GetBodyA(index, "<Grid><Cfg Sort='A'/></Grid>"));
      FreeStringA(GetLastIdA(index));
      // The shared grid is only used, never deleted.
      EXPECT_EQ(UpdateGridA(shared, "<Grid><Cfg Touched='1'/></Grid>"), 0);
      EXPECT_TRUE(TakeA(GetDataA(shared)));
      EXPECT_EQ(SessionOf(shared), "shared");
      EXPECT_EQ(DeleteGrid(index), 0);
      EXPECT_EQ(FindGridA(SessionDoc(session).c_str()), -2);
    }
    running--;
  };
  // Walks all grids while they come and go.
  auto scan = [&] {
    while (running > 0) {
      EXPECT_GE(GetIndexes(nullptr, 0), 1);
      FreeStringA(FindGridsStrA(0, "<Grid><Cfg/></Grid>", 0, 0));
      int out[8];
      EXPECT_GE(FindGridsA(out, 8, "<Grid><Cfg Kind='stress'/></Grid>", 0, 0), 0);
      EXPECT_EQ(FindGridA(SessionDoc("shared").c_str()), shared);
      for (int i = 0; i < 8; i++) FreeStringA(GetGridSessionA(i));
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < workers; i++) threads.emplace_back(work, i);
  threads.emplace_back(scan);
  for (auto& thread : threads) thread.join();
  EXPECT_GT(roundsDone.load(), workers);
  EXPECT_EQ(GetIndexes(nullptr, 0), 1);
  Clear();
}

}  // namespace
