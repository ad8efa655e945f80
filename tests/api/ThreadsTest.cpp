// Sixteen host threads mixing every exported call over grids they share and
// grids of their own. Calls on a shared grid commute (each thread changes
// only its own row, settings are the same for all), so every grid must end
// as the same calls leave it on one thread. A watchdog turns a deadlock
// into a failure instead of a hung run.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ApiHelpers.h"

namespace {

const int kThreads = 16, kShared = 2, kRounds = 12;

std::string Layout(const std::string& session) {
  std::string rows;
  for (int i = 0; i < kThreads; i++)
    rows += "<I id='r" + std::to_string(i) + "' A='" + std::to_string(i * 7 % 5) + "' B='b" + std::to_string(i) + "'/>";
  return "<Grid><IO Session='" + session + "'/><Cfg Kind='threads' Paging='2' PageLength='4' Calculated='1'/>"
         "<Cols><C Name='A' Type='Int'/><C Name='B'/><C Name='S' Type='Int' Formula='A*2'/></Cols>"
         "<Foot><I id='sum' Calculated='1' AFormula='sum()'/></Foot><Body><B>" + rows + "</B></Body></Grid>";
}

// One thread's calls of one round on a grid; row is the only row it changes.
void Round(int grid, int row, int round) {
  const std::string id = "r" + std::to_string(row);
  FreeStringA(GetBodyA(grid, "<Grid><Cfg Sort='-A,B'/><Body><B Pos='0'/></Body></Grid>"));
  FreeStringA(GetPageA(grid, "<Grid><Body><B Pos='1'/></Body></Grid>"));
  FreeStringA(GetCellsA(grid, id.c_str(), 0, "S", nullptr));
  FreeStringA(GetCellsA(grid, nullptr, 0, "B", nullptr));
  SaveA(grid, ("<Grid><Changes><I id='" + id + "' A='" + std::to_string(round) + "' Changed='1'/></Changes></Grid>").c_str());
  FreeStringA(GetChangesA(grid, 0));
  FreeStringA(GetExportA(grid, "<Grid/>"));
  UpdateGridA(grid, "<Grid><Cfg Touched='1'/></Grid>");
  SetGridLocaleA(grid, "");
  FreeStringA(GetGridSessionA(grid));
  FreeStringA(GetLastIdA(grid));
  FreeStringA(GetDataA(grid));
}

// Aborts the process when the work isn't done in time: a deadlock must not hang CI.
class Watchdog {
public:
  explicit Watchdog(int seconds) : thread_([this, seconds] {
      std::unique_lock<std::mutex> lock(mutex_);
      if (!done_cv_.wait_for(lock, std::chrono::seconds(seconds), [this] { return done_; })) {
        std::fprintf(stderr, "threads test: no progress in %d seconds, deadlock?\n", seconds);
        std::abort();
      }
    }) {}
  ~Watchdog() {
    { std::lock_guard<std::mutex> lock(mutex_); done_ = true; }
    done_cv_.notify_one();
    thread_.join();
  }
private:
  std::mutex mutex_;
  std::condition_variable done_cv_;
  bool done_ = false;
  std::thread thread_;
};

class ThreadsTest : public EmptyRegistry {};

TEST_F(ThreadsTest, SixteenThreadsEndAsOneThreadDoes) {
  Watchdog watchdog(240);
  // What one thread leaves: its own grid after all its rounds, and each shared
  // grid after every thread's rounds in turn.
  auto alone = [](const std::string& session, const std::vector<int>& rows) {
    const int grid = Create(Layout(session));
    for (int round = 0; round < kRounds; round++)
      for (int row : rows) Round(grid, row, round);
    std::string data = TakeA(GetDataA(grid)).value_or("<null>");
    DeleteGrid(grid);
    return data;
  };
  std::vector<std::string> ownExpected(kThreads), sharedExpected(kShared);
  for (int t = 0; t < kThreads; t++) ownExpected[t] = alone("own" + std::to_string(t), {t});
  for (int s = 0; s < kShared; s++) {
    std::vector<int> rows;
    for (int t = s; t < kThreads; t += kShared) rows.push_back(t);
    sharedExpected[s] = alone("shared" + std::to_string(s), rows);
  }

  int shared[kShared];
  for (int s = 0; s < kShared; s++) ASSERT_GE(shared[s] = Create(Layout("shared" + std::to_string(s))), 0);
  std::vector<std::string> ownData(kThreads);
  std::atomic<int> failures{0};
  auto work = [&](int t) {
    const std::string session = "own" + std::to_string(t);
    const int own = Create(Layout(session));
    if (own < 0) { failures++; return; }
    for (int round = 0; round < kRounds; round++) {
      Round(own, t, round);
      Round(shared[t % kShared], t, round);
      // Short-lived grids come and go beside the others.
      const int temp = Create(GridDoc("temp" + std::to_string(t), "temp"));
      if (FindGridA(SessionDoc(session).c_str()) != own || temp < 0 || DeleteGrid(temp) != 0) failures++;
      FreeStringA(FindGridsStrA(0, "<Grid><Cfg Kind='threads'/></Grid>", 0, 0));
      FreeStringA(GetSessionA(SessionDoc(session).c_str()));
      GetIndexes(nullptr, 0);
    }
    ownData[t] = TakeA(GetDataA(own)).value_or("<null>");
    if (DeleteGrid(own) != 0) failures++;
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; t++) threads.emplace_back(work, t);
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(failures.load(), 0);
  for (int t = 0; t < kThreads; t++) EXPECT_EQ(ownData[t], ownExpected[t]) << "thread " << t;
  for (int s = 0; s < kShared; s++)
    EXPECT_EQ(TakeA(GetDataA(shared[s])).value_or("<null>"), sharedExpected[s]) << "shared grid " << s;
  EXPECT_EQ(GetIndexes(nullptr, 0), kShared);
}

}  // namespace
