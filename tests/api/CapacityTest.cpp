// Capacity: a thousand grids of a thousand rows come and go, and the heap in
// use returns to where it was. Measured with glibc's allocator statistics, so
// skipped under the sanitizers, whose allocators keep their own books (the
// leak checker covers those builds).
#include <malloc.h>

#include <string>
#include <vector>

#include "ApiHelpers.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SARVENDO_OWN_ALLOCATOR 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SARVENDO_OWN_ALLOCATOR 1
#endif
#endif

namespace {

class CapacityTest : public EmptyRegistry {};

std::string Rows(int count) {
  std::string doc = "<Grid><Cfg Sort='A'/><Cols><C Name='A' Type='Int'/><C Name='B'/></Cols><Body><B>";
  for (int i = 0; i < count; i++)
    doc += "<I id='r" + std::to_string(i) + "' A='" + std::to_string(i * 37 % 1000) + "' B='text " + std::to_string(i) + "'/>";
  return doc + "</B></Body></Grid>";
}

TEST_F(CapacityTest, ThousandGridsOfThousandRowsGiveTheirHeapBack) {
#ifdef SARVENDO_OWN_ALLOCATOR
  GTEST_SKIP() << "the sanitizer's allocator keeps no glibc statistics";
#endif
  const std::string doc = Rows(1000);
  // One big grid first, so lazily made tables count in the starting figure,
  // and a thousand small ones: the grid table keeps the room it has grown to.
  DeleteGrid(Create(doc));
  std::vector<int> small;
  for (int i = 0; i < 1000; i++) small.push_back(Create(GridDoc()));
  for (int index : small) DeleteGrid(index);
  malloc_trim(0);
  const size_t before = mallinfo2().uordblks;
  std::vector<int> grids;
  for (int i = 0; i < 1000; i++) {
    grids.push_back(Create(doc));
    ASSERT_GE(grids.back(), 0) << "grid " << i;
  }
  const size_t full = mallinfo2().uordblks;
  EXPECT_GT(full, before + 1000 * 1000 * 20) << "the grids should hold their rows";
  for (int index : grids) ASSERT_EQ(DeleteGrid(index), 0);
  const size_t after = mallinfo2().uordblks;
  EXPECT_LE(after, before + before / 20) << "before " << before << ", full " << full << ", after " << after;
}

}  // namespace
