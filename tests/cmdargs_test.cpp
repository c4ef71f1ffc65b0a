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

TEST(CmdArgs, WithoutArgumentFilesTheArgumentsAreCopied) {
  Expanded plain = Expand({"prog", "a b", "", "-ARGFILE", "-argfile2", "x"});
  EXPECT_EQ(plain.args, (Args{"prog", "a b", "", "-ARGFILE", "-argfile2", "x"}));
  EXPECT_EQ(plain.echoed, "");
  Expanded none = Expand({});
  EXPECT_TRUE(none.args.empty());
}

TEST(CmdArgs, EachLineIsOneArgumentInCommandLineOrder) {
  qtest::TempDir dir;
  std::string first = dir / "first", second = dir / "second";
  // Unix and Windows line ends, an empty line, blanks and quotes, a nested
  // option, and a last line without a line end, which is lost.
  qtest::WriteFile(first, "one\r\n  two \"quoted\"\n\n-argfile\nthree\r\nlost");
  qtest::WriteFile(second, "x\r\r\n-argfile\n");
  Expanded result = Expand({"prog", "-argfile", first, "mid", "-argfile", second, "end"});
  EXPECT_EQ(result.args, (Args{"prog", "one", "  two \"quoted\"", "", "-argfile", "three", "mid",
                               "x\r", "-argfile", "end"}));
  EXPECT_EQ(result.echoed, "prog one   two \"quoted\"  -argfile three mid x\r -argfile end\n");

  Expanded quiet = Expand({"prog", "-argfile", second}, false);
  EXPECT_EQ(quiet.args, (Args{"prog", "x\r", "-argfile"}));
  EXPECT_EQ(quiet.echoed, "");
}

TEST(CmdArgs, EmptyAndUnterminatedFilesAddNothing) {
  qtest::TempDir dir;
  qtest::WriteFile(dir / "empty", "");
  qtest::WriteFile(dir / "single", "no line end");
  Expanded result = Expand({"prog", "-argfile", dir / "empty", "-argfile", dir / "single", "rest"});
  EXPECT_EQ(result.args, (Args{"prog", "rest"}));
  EXPECT_EQ(result.echoed, "prog rest\n");

  std::string longLine(70000, 'L');
  qtest::WriteFile(dir / "long", longLine + "\nafter\n");
  EXPECT_EQ(Expand({"-argfile", dir / "long"}).args, (Args{longLine, "after"}));
}

TEST(CmdArgs, VariableAtTheHeadOfALine) {
  qtest::TempDir dir;
  ASSERT_EQ(setenv("QTEST_ARGS_DIR", "/u/x", 1), 0);
  ASSERT_EQ(setenv("QTEST_ARGS_SELF", "$QTEST_ARGS_DIR", 1), 0);
  unsetenv("QTEST_ARGS_UNSET");
  qtest::WriteFile(dir / "vars",
                   "$QTEST_ARGS_DIR/bin\n"
                   "$QTEST_ARGS_DIR\n"
                   "$QTEST_ARGS_DIR|a b\n"
                   "$QTEST_ARGS_DIR\\w\n"
                   "$QTEST_ARGS_DIR\tt\n"
                   "$QTEST_ARGS_DIR x\n"
                   "$QTEST_ARGS_DIRx\n"
                   "$QTEST_ARGS_SELF/z\n"
                   "$QTEST_ARGS_UNSET/y\n"
                   "a/$QTEST_ARGS_DIR\n"
                   "$\n"
                   "$\\z\n"
                   "$QTEST_ARGS_DIR/$QTEST_ARGS_DIR\r\n");
  Expanded result = Expand({"-argfile", dir / "vars"});
  EXPECT_EQ(result.args, (Args{"/u/x/bin", "/u/x", "/u/x|a b", "/u/x\\w", "/u/x\tt", "/u/x x",
                               "$QTEST_ARGS_DIRx", "$QTEST_ARGS_DIR/z", "$QTEST_ARGS_UNSET/y",
                               "a/$QTEST_ARGS_DIR", "$", "$\\z", "/u/x/$QTEST_ARGS_DIR"}));
  unsetenv("QTEST_ARGS_DIR");
  unsetenv("QTEST_ARGS_SELF");
}

char const* const kWrongUsage[] = {"prog", "a", "-argfile"};

void ExpandOrStop(std::vector<char const*> args) {
  int argc = static_cast<int>(args.size());
  char** argv = const_cast<char**>(args.data());
  ExpandCommandArguments(argc, argv, false);
}

TEST(CmdArgsDeathTest, OptionWithoutAFileAndAFileThatCannotBeOpened) {
  EXPECT_DEATH(ExpandOrStop({std::begin(kWrongUsage), std::end(kWrongUsage)}),
               "Illegal usage of -argfile\n.*srcquillon/cmdargxp");
  // The death test runs in a fresh process, with a temporary directory of its own.
  qtest::TempDir dir;
  std::string missing = dir / "missing";
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", missing.c_str()}),
               "File /.*/missing cannot be opened.\n.*srcquillon/cmdargxp");
  // The word behind the option is a file name, whatever it looks like.
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", "-argfile"}), "File -argfile cannot be opened.");
  // Inside a file, the option at the very end is an ordinary argument.
  qtest::WriteFile(dir / "last", "-argfile\n");
  EXPECT_EQ(Expand({"prog", "-argfile", dir / "last"}).args, (Args{"prog", "-argfile"}));
}

}  // namespace
