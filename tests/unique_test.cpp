// Interned strings: sharing by text, counting of users, release of cells.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

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
  EXPECT_EQ(first.GetLength(), 11u);
  dsUniqueString upper("Shared text");
  EXPECT_TRUE(upper != first);

  dsUniqueString fromNull(nullptr);
  dsUniqueString fromEmpty("");
  EXPECT_TRUE(fromNull == fromEmpty);
  EXPECT_TRUE(fromNull.IsEmpty());
  EXPECT_STREQ(fromNull.GiveString(), "");
}

TEST(UniqueCounting, TheLastUserOrLockTakesTheCellAway) {
  EXPECT_TRUE(NoCellFor("alpha"));
  std::unique_ptr<dsUniqueString> original(new dsUniqueString("alpha"));
  dsUniqueString copy(*original);
  original.reset();
  EXPECT_STREQ(copy.GiveString(), "alpha");  // the copy still holds the cell
  EXPECT_FALSE(NoCellFor("alpha"));
  dsUniqueString other("beta");
  copy = other;  // gives up the last hold on "alpha"
  EXPECT_TRUE(NoCellFor("alpha"));
  copy = copy;
  EXPECT_STREQ(copy.GiveString(), "beta");

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

TEST(UniqueDatabase, ManyTextsStayDistinctAndAreFoundAgain) {
  std::mt19937 random(99);
  std::vector<std::string> texts(300);
  for (auto& text : texts) {
    for (unsigned int length = random() % 6; length > 0; --length) {
      text += static_cast<char>(1 + random() % 255);  // bytes above 127 too
    }
  }
  std::vector<std::unique_ptr<dsUniqueString>> strings;
  for (auto const& text : texts) strings.emplace_back(new dsUniqueString(text.c_str()));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::size_t const j = random() % texts.size();
    EXPECT_EQ(*strings[i] == *strings[j], texts[i] == texts[j]) << i << " " << j;
  }
  for (std::size_t i = 0; i < strings.size(); i += 2) strings[i].reset();
  for (std::size_t i = 1; i < strings.size(); i += 2) EXPECT_EQ(strings[i]->GiveString(), texts[i]);
  strings.clear();
  for (auto const& text : texts) EXPECT_TRUE(NoCellFor(text.c_str())) << text;
}

TEST(UniqueUnload, DatabaseInUseReleasesItsBlockAtUnload) {
  std::string output;
  int const status = qtest::RunProgram({QUILLON_LOAD_PROBE, QUILLON_LIBRARY_FILE, QUILLON_PROBE_USER}, &output);
  EXPECT_EQ(status, 0) << output;
  // The strings and the task are gone; the database and the task registry
  // keep their blocks until unload.
  EXPECT_NE(output.find("use: 0, blocks after use: 2"), std::string::npos) << output;
}

}  // namespace
