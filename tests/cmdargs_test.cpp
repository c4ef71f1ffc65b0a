// Argument files on the command line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

using Args = std::vector<std::string>;

// Expands a command line: the new arguments, and in echoed what went to the
// standard output. The new strings must share nothing with the old ones.
Args Expand(Args const& old, std::string& echoed, bool echo = true) {
  std::vector<char*> pointers;
  for (std::string const& arg : old) pointers.push_back(const_cast<char*>(arg.c_str()));
  int argc = static_cast<int>(pointers.size());
  char** argv = pointers.data();
  testing::internal::CaptureStdout();
  ExpandCommandArguments(argc, argv, echo);
  echoed = testing::internal::GetCapturedStdout();
  Args result;
  for (int i = 0; i < argc; ++i) {
    for (char* p : pointers) EXPECT_NE(argv[i], p);
    result.push_back(argv[i]);
  }
  FreeCommandArguments(argc, argv);
  return result;
}

// fuzz/argfile_fuzz.cpp compares lines and variables with a plain reading; here
// the echo, a line far longer than any first guess, and a value not scanned again.
TEST(CmdArgs, EchoLongLinesAndVariables) {
  Args const plain{"prog", "a b", "", "-ARGFILE", "-argfile2", "x"};
  std::string echoed;
  EXPECT_EQ(Expand(plain, echoed), plain);  // no argument file: a plain copy, nothing echoed
  EXPECT_EQ(echoed, "");

  qtest::TempDir dir;
  qtest::EnvVar d("QTEST_D", "/u/x"), self("QTEST_SELF", "$QTEST_D");
  qtest::WriteFile(dir / "first", "one\r\n  two \"quoted\"\n\n$QTEST_D\\w\n$QTEST_SELF/z\n");
  EXPECT_EQ(Expand({"prog", "-argfile", dir / "first", "end"}, echoed),
            (Args{"prog", "one", "  two \"quoted\"", "", "/u/x\\w", "$QTEST_D/z", "end"}));
  EXPECT_EQ(echoed, "prog one   two \"quoted\"  /u/x\\w $QTEST_D/z end\n");
  std::string const longLine(70000, 'L');
  qtest::WriteFile(dir / "long", longLine + "\n");
  EXPECT_EQ(Expand({"-argfile", dir / "long"}, echoed, false), Args{longLine});
  EXPECT_EQ(echoed, "") << "asked not to echo";
}

void ExpandOrStop(std::vector<char const*> args) {
  int argc = static_cast<int>(args.size());
  char** argv = const_cast<char**>(args.data());
  ExpandCommandArguments(argc, argv, false);
}

TEST(CmdArgsDeathTest, OptionWithoutAFileAndAFileThatCannotBeOpened) {
  EXPECT_DEATH(ExpandOrStop({"prog", "a", "-argfile"}), "Illegal usage of -argfile\n.*srcquillon/cmdargxp");
  qtest::TempDir dir;
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", (dir / "missing").c_str()}),
               "File .*missing cannot be opened.\n.*srcquillon/cmdargxp");
  // A directory opens, but no line can be read from it: it is no argument file.
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", dir.Path().c_str(), "after"}), "File .* cannot be opened.\n.*srcquillon/cmdargxp");
  // The word behind the option is a file name, whatever it looks like.
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", "-argfile"}), "File -argfile cannot be opened.");
}

}  // namespace
