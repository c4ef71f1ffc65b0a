// Argument files on the command line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

using Args = std::vector<std::string>;

struct Expanded {
  Args args;
  std::string echoed;
};

// Expands a command line and gives the new arguments and what was echoed.
// The new strings must share nothing with the old ones.
Expanded Expand(Args const& old, bool echo = true) {
  std::vector<char*> pointers;
  for (std::string const& arg : old) pointers.push_back(const_cast<char*>(arg.c_str()));
  int argc = static_cast<int>(pointers.size());
  char** argv = pointers.data();
  testing::internal::CaptureStdout();
  ExpandCommandArguments(argc, argv, echo);
  Expanded result;
  result.echoed = testing::internal::GetCapturedStdout();
  EXPECT_NE(argv, pointers.data());
  for (int i = 0; i < argc; ++i) {
    for (char* p : pointers) EXPECT_NE(argv[i], p);
    result.args.push_back(argv[i]);
  }
  FreeCommandArguments(argc, argv);
  EXPECT_EQ(argv, nullptr);
  return result;
}

TEST(CmdArgs, EachLineIsOneArgumentInCommandLineOrder) {
  Args const plain{"prog", "a b", "", "-ARGFILE", "-argfile2", "x"};
  Expanded copied = Expand(plain);  // no argument file: a plain copy, nothing echoed
  EXPECT_EQ(copied.args, plain);
  EXPECT_EQ(copied.echoed, "");
  EXPECT_TRUE(Expand({}).args.empty());

  qtest::TempDir dir;
  // Unix and Windows line ends, an empty line, blanks and quotes, a nested
  // option, and a last line without a line end, which is lost.
  qtest::WriteFile(dir / "first", "one\r\n  two \"quoted\"\n\n-argfile\nthree\r\nlost");
  qtest::WriteFile(dir / "second", "x\r\r\n-argfile\n");
  qtest::WriteFile(dir / "empty", "");
  qtest::WriteFile(dir / "single", "no line end");
  Expanded result = Expand({"prog", "-argfile", dir / "first", "mid", "-argfile", dir / "empty", "-argfile",
                            dir / "second", "-argfile", dir / "single", "end"});
  EXPECT_EQ(result.args, (Args{"prog", "one", "  two \"quoted\"", "", "-argfile", "three", "mid", "x\r",
                               "-argfile", "end"}));
  EXPECT_EQ(result.echoed, "prog one   two \"quoted\"  -argfile three mid x\r -argfile end\n");
  Expanded quiet = Expand({"prog", "-argfile", dir / "second"}, false);
  EXPECT_EQ(quiet.args, (Args{"prog", "x\r", "-argfile"}));
  EXPECT_EQ(quiet.echoed, "");
  EXPECT_EQ(Expand({"prog", "-argfile", dir / "empty"}).echoed, "prog\n");

  std::string longLine(70000, 'L');
  qtest::WriteFile(dir / "long", longLine + "\nafter\n");
  EXPECT_EQ(Expand({"-argfile", dir / "long"}).args, (Args{longLine, "after"}));
}

TEST(CmdArgs, VariableAtTheHeadOfALine) {
  qtest::TempDir dir;
  ASSERT_EQ(setenv("QTEST_D", "/u/x", 1), 0);
  ASSERT_EQ(setenv("QTEST_SELF", "$QTEST_D", 1), 0);
  unsetenv("QTEST_UNSET");
  // What ends a name, a name that runs on, a value not scanned again, an
  // unset name, a '$' not at the head, an empty name, a second variable.
  qtest::WriteFile(dir / "vars",
                   "$QTEST_D/bin\n$QTEST_D\n$QTEST_D|a b\n$QTEST_D\\w\n$QTEST_D\tt\n$QTEST_D x\n$QTEST_Dx\n"
                   "$QTEST_SELF/z\n$QTEST_UNSET/y\na/$QTEST_D\n$\n$\\z\n$QTEST_D/$QTEST_D\r\n");
  EXPECT_EQ(Expand({"-argfile", dir / "vars"}).args,
            (Args{"/u/x/bin", "/u/x", "/u/x|a b", "/u/x\\w", "/u/x\tt", "/u/x x", "$QTEST_Dx", "$QTEST_D/z",
                  "$QTEST_UNSET/y", "a/$QTEST_D", "$", "$\\z", "/u/x/$QTEST_D"}));
  unsetenv("QTEST_D");
  unsetenv("QTEST_SELF");
}

void ExpandOrStop(std::vector<char const*> args) {
  int argc = static_cast<int>(args.size());
  char** argv = const_cast<char**>(args.data());
  ExpandCommandArguments(argc, argv, false);
}

TEST(CmdArgsDeathTest, OptionWithoutAFileAndAFileThatCannotBeOpened) {
  EXPECT_DEATH(ExpandOrStop({"prog", "a", "-argfile"}), "Illegal usage of -argfile\n.*srcquillon/cmdargxp");
  qtest::TempDir dir;
  std::string missing = dir / "missing";
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", missing.c_str()}),
               "File /.*/missing cannot be opened.\n.*srcquillon/cmdargxp");
  // The word behind the option is a file name, whatever it looks like.
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", "-argfile"}), "File -argfile cannot be opened.");
}

}  // namespace
