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
Args Expand(Args const& old, std::string* echoed = nullptr, bool echo = true) {
  std::vector<char*> pointers;
  for (std::string const& arg : old) pointers.push_back(const_cast<char*>(arg.c_str()));
  int argc = static_cast<int>(pointers.size());
  char** argv = pointers.data();
  testing::internal::CaptureStdout();
  ExpandCommandArguments(argc, argv, echo);
  std::string output = testing::internal::GetCapturedStdout();
  if (echoed != nullptr) *echoed = output;
  Args result;
  for (int i = 0; i < argc; ++i) {
    for (char* p : pointers) EXPECT_NE(argv[i], p);
    result.push_back(argv[i]);
  }
  FreeCommandArguments(argc, argv);
  return result;
}

TEST(CmdArgs, EachLineIsOneArgumentInCommandLineOrder) {
  Args const plain{"prog", "a b", "", "-ARGFILE", "-argfile2", "x"};
  std::string echoed;
  EXPECT_EQ(Expand(plain, &echoed), plain);  // no argument file: a plain copy, nothing echoed
  EXPECT_EQ(echoed, "");
  EXPECT_TRUE(Expand({}).empty());

  qtest::TempDir dir;
  // Unix and Windows line ends, an empty line, blanks and quotes, a nested
  // option, and a last line without a line end, which is lost.
  qtest::WriteFile(dir / "first", "one\r\n  two \"quoted\"\n\n-argfile\nthree\r\nlost");
  qtest::WriteFile(dir / "second", "x\r\r\n-argfile\n");
  qtest::WriteFile(dir / "empty", "");
  EXPECT_EQ(Expand({"prog", "-argfile", dir / "first", "mid", "-argfile", dir / "empty", "-argfile", dir / "second", "end"}, &echoed),
            (Args{"prog", "one", "  two \"quoted\"", "", "-argfile", "three", "mid", "x\r", "-argfile", "end"}));
  EXPECT_EQ(echoed, "prog one   two \"quoted\"  -argfile three mid x\r -argfile end\n");
  std::string const longLine(70000, 'L');
  qtest::WriteFile(dir / "long", longLine + "\n");
  EXPECT_EQ(Expand({"-argfile", dir / "long"}, &echoed, false), Args{longLine});
  EXPECT_EQ(echoed, "") << "asked not to echo";
  Expand({"prog", "-argfile", dir / "empty"}, &echoed);
  EXPECT_EQ(echoed, "prog\n");
}

TEST(CmdArgs, VariableAtTheHeadOfALine) {
  qtest::TempDir dir;
  qtest::EnvVar d("QTEST_D", "/u/x"), self("QTEST_SELF", "$QTEST_D"), unset("QTEST_UNSET", nullptr);
  // What ends a name, a name that runs on, a value not scanned again, an
  // unset name, a '$' not at the head, an empty name, a second variable.
  qtest::WriteFile(dir / "vars",
                   "$QTEST_D/bin\n$QTEST_D\n$QTEST_D|a b\n$QTEST_D\\w\n$QTEST_D\tt\n$QTEST_D x\n$QTEST_Dx\n"
                   "$QTEST_SELF/z\n$QTEST_UNSET/y\na/$QTEST_D\n$\n$\\z\n$QTEST_D/$QTEST_D\r\n");
  EXPECT_EQ(Expand({"-argfile", dir / "vars"}),
            (Args{"/u/x/bin", "/u/x", "/u/x|a b", "/u/x\\w", "/u/x\tt", "/u/x x", "$QTEST_Dx", "$QTEST_D/z",
                  "$QTEST_UNSET/y", "a/$QTEST_D", "$", "$\\z", "/u/x/$QTEST_D"}));
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
  std::string const separator = qtest::host::kIsPosix ? "/" : "\\\\";  // as a pattern
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", missing.c_str()}),
               "File .*" + separator + "missing cannot be opened.\n.*srcquillon/cmdargxp");
  // A directory opens, but no line can be read from it: it is no argument file.
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", dir.Path().c_str(), "after"}), "File .* cannot be opened.\n.*srcquillon/cmdargxp");
  // The word behind the option is a file name, whatever it looks like.
  EXPECT_DEATH(ExpandOrStop({"prog", "-argfile", "-argfile"}), "File -argfile cannot be opened.");
}

}  // namespace
