// Interned strings: sharing by text, counting of users, release of cells.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "quillon.h"

namespace {

// True if no user holds the cell of text: taking one and giving it back
// then destroys the cell.
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
  copy = copy;
  EXPECT_STREQ(copy.GiveString(), "beta");
  {
    dsUniqueString only("solitary");  // the one user of its cell
    only = only;
    EXPECT_STREQ(only.GiveString(), "solitary");
    EXPECT_FALSE(NoCellFor("solitary"));
  }
  EXPECT_TRUE(NoCellFor("solitary"));

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

}  // namespace
