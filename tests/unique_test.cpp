// Interned strings: sharing by text, counting of users, release of cells.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "quillon.h"
#include "testsupport.h"

// A released array gets 0xFF as its first byte and waits in a quarantine, so
// that a database entry left behind by a released cell sorts after every real
// key. Visible, so that the library calls them.
#if QTEST_ALLOCATOR_REPLACEABLE
static void* quarantine[64];
static std::size_t quarantined = 0;
QTEST_REPLACES void* operator new[](std::size_t bytes) {
  if (void* block = std::malloc(bytes != 0 ? bytes : 1)) return block;
  throw std::bad_alloc();
}
QTEST_REPLACES void operator delete[](void* block) noexcept {
  if (block == nullptr) return;
  if (*static_cast<char*>(block) != 0) *static_cast<char*>(block) = '\xFF';
  std::free(std::exchange(quarantine[quarantined++ % 64], block));
}
QTEST_REPLACES void operator delete[](void* block, std::size_t) noexcept { operator delete[](block); }
#endif

namespace {

// True if no user holds the cell of text (taking one and giving it back destroys it).
bool NoCellFor(char const* text) {
  dsStringCell* cell = nullptr;
  dsStringCell::AddToDatabase(text, cell);
  dsStringCell::Release(cell);
  return cell == nullptr;
}

TEST(UniqueSharing, EqualTextsShareOneCellAndItsText) {
  char buffer[] = "shared text";
  dsUniqueString first(buffer);
  dsUniqueString second("shared text");
  EXPECT_TRUE(first == second);
  EXPECT_EQ(first.GiveString(), second.GiveString());
  buffer[0] = 'S';  // the cell holds its own copy
  EXPECT_STREQ(first.GiveString(), "shared text");
  EXPECT_TRUE(dsUniqueString(buffer) != first);
  dsUniqueString fromNull(nullptr);
  EXPECT_TRUE(fromNull == dsUniqueString("") && fromNull.IsEmpty());
}

TEST(UniqueCounting, TheLastUserOrLockTakesTheCellAway) {
  std::unique_ptr<dsUniqueString> original(new dsUniqueString("alpha"));
  dsUniqueString copy(*original);
  original.reset();
  EXPECT_FALSE(NoCellFor("alpha"));  // the copy still holds the cell
  dsUniqueString other("beta");
  copy = other;  // gives up the last hold on "alpha"
  EXPECT_TRUE(NoCellFor("alpha"));
  EXPECT_FALSE(NoCellFor("beta"));  // the right cell left the database

  // A locked cell outlives its strings and stays in the database.
  dsStringCell* held = nullptr;
  {
    dsUniqueString user("gamma");
    dsStringCell::AddToDatabase("gamma", held);
    held->Lock();
    dsStringCell::Release(held);  // not the last user: the pointer stays
    ASSERT_NE(held, nullptr);
  }
  dsUniqueString later("gamma");
  EXPECT_EQ(later.GiveString(), held->GetString());
  later = other;
  dsStringCell::Release(held);
  EXPECT_EQ(held, nullptr);
  EXPECT_TRUE(NoCellFor("gamma"));
}

// A cell given up by its last user leaves the database: every other text
// still finds its one cell afterwards.
TEST(UniqueCounting, AReleasedCellLeavesNoEntryBehind) {
  QTEST_NEEDS_REPLACED_ALLOCATOR();
  auto text = [](int i) { return "key-" + std::string(1, static_cast<char>('a' + i)); };
  std::unique_ptr<dsUniqueString> held[10];
  for (int i = 0; i < 10; ++i) held[i].reset(new dsUniqueString(text(i).c_str()));
  held[4].reset();  // the last user of "key-e"
  held[4].reset(new dsUniqueString(text(4).c_str()));
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(dsUniqueString(text(i).c_str()) == *held[i]) << text(i);
}

// Assigning the one user of a cell to itself keeps the cell; run in a child,
// since a cell freed under the object would end the process.
TEST(UniqueCountingDeathTest, SelfAssignmentOfTheOnlyUserKeepsItsCell) {
  EXPECT_EXIT(
      {
        dsUniqueString only("solitary");
        only = only;
        bool const kept = std::strcmp(only.GiveString(), "solitary") == 0 && !NoCellFor("solitary");
        std::exit(kept ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_TRUE(NoCellFor("solitary"));
}

}  // namespace
