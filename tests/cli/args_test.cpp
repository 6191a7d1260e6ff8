// The command-line parser, table-driven: classic glued forms, separate and
// long options, and the usage errors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/args.h"

namespace kzcli {
namespace {

std::string Join(const std::vector<std::string>& v) {
  std::string out;
  for (const std::string& s : v) out += (out.empty() ? "" : ",") + s;
  return out;
}

// Every field of Options in one line, so a table row states all of them.
std::string Describe(const Options& o) {
  return std::string("cmd=") + (o.commandLetter ? o.commandLetter : '-') + " arc=" + o.archive +
         " names=[" + Join(o.names) + "] w=" + o.outputDir + " f=" + std::to_string(o.force) +
         " i=" + std::to_string(o.ignorePaths) + " q=" + std::to_string(o.quiet) +
         " json=" + std::to_string(o.json) + " m=" + std::to_string(o.method) +
         " l=" + std::to_string(o.level) + " h=" + std::to_string(o.headerLevel) +
         " cp=" + std::to_string(o.codePage) + " x=[" + Join(o.excludes) + "] mod=" + o.modulePath;
}

struct GoodCase {
  std::vector<std::string> args;
  std::string expected;
};

class ParseGood : public ::testing::TestWithParam<GoodCase> {};

TEST_P(ParseGood, GivesTheOptions) {
  const ParseResult r = ParseCommandLine(GetParam().args);
  ASSERT_TRUE(r.ok()) << r.error;
  EXPECT_EQ(Describe(r.options), GetParam().expected);
}

const std::string kPlain = " w= f=0 i=0 q=0 json=0 m=0 l=-1 h=-1 cp=0 x=[] mod=";

INSTANTIATE_TEST_SUITE_P(
    Forms, ParseGood,
    ::testing::Values(
        GoodCase{{"l", "a.lzh"}, "cmd=l arc=a.lzh names=[]" + kPlain},
        GoodCase{{"-l", "a.lzh"}, "cmd=l arc=a.lzh names=[]" + kPlain},
        GoodCase{{"v", "a.lzh", "x", "y/*"}, "cmd=v arc=a.lzh names=[x,y/*]" + kPlain},
        // Classic glued clusters, with and without the leading dash.
        GoodCase{{"a1o6q", "b.lzh", "f1", "dir"},
                 "cmd=a arc=b.lzh names=[f1,dir] w= f=0 i=0 q=1 json=0 m=6 l=-1 h=1 cp=0 x=[] mod="},
        GoodCase{{"xfw=out/dir", "a.lzh"},
                 "cmd=x arc=a.lzh names=[] w=out/dir f=1 i=0 q=0 json=0 m=0 l=-1 h=-1 cp=0 x=[] mod="},
        GoodCase{{"-xfw=DIR", "a.lzh"},
                 "cmd=x arc=a.lzh names=[] w=DIR f=1 i=0 q=0 json=0 m=0 l=-1 h=-1 cp=0 x=[] mod="},
        GoodCase{{"eiq", "a.lzh"}, "cmd=e arc=a.lzh names=[] w= f=0 i=1 q=1 json=0 m=0 l=-1 h=-1 cp=0 x=[] mod="},
        GoodCase{{"cz2", "a.lzh", "f"}, "cmd=c arc=a.lzh names=[f] w= f=0 i=0 q=0 json=0 m=0 l=0 h=2 cp=0 x=[] mod="},
        GoodCase{{"ul4o7", "a.lzh", "f"}, "cmd=u arc=a.lzh names=[f] w= f=0 i=0 q=0 json=0 m=7 l=4 h=-1 cp=0 x=[] mod="},
        // Separate short options, anywhere after the command.
        GoodCase{{"x", "-w=o", "-f", "a.lzh", "-i", "n"},
                 "cmd=x arc=a.lzh names=[n] w=o f=1 i=1 q=0 json=0 m=0 l=-1 h=-1 cp=0 x=[] mod="},
        GoodCase{{"x", "-w", "o", "a.lzh"},
                 "cmd=x arc=a.lzh names=[] w=o f=0 i=0 q=0 json=0 m=0 l=-1 h=-1 cp=0 x=[] mod="},
        GoodCase{{"a", "-x=*.o", "-x", "*.tmp", "a.lzh", "src"},
                 "cmd=a arc=a.lzh names=[src] w= f=0 i=0 q=0 json=0 m=0 l=-1 h=-1 cp=0 x=[*.o,*.tmp] mod="},
        GoodCase{{"a", "-o5", "-l1", "-z", "a.lzh", "s"},
                 "cmd=a arc=a.lzh names=[s] w= f=0 i=0 q=0 json=0 m=5 l=0 h=-1 cp=0 x=[] mod="},
        // Long options, with '=' or a separate value, before the command too.
        GoodCase{{"--module=/m.so", "l", "--json", "a.lzh"},
                 "cmd=l arc=a.lzh names=[] w= f=0 i=0 q=0 json=1 m=0 l=-1 h=-1 cp=0 x=[] mod=/m.so"},
        GoodCase{{"x", "--output-dir", "o", "--force", "--quiet", "--ignore-paths", "a.lzh"},
                 "cmd=x arc=a.lzh names=[] w=o f=1 i=1 q=1 json=0 m=0 l=-1 h=-1 cp=0 x=[] mod="},
        GoodCase{{"a", "--method=lh7", "--level=3", "--code-page=65001", "--exclude=*.bak", "a.lzh", "s"},
                 "cmd=a arc=a.lzh names=[s] w= f=0 i=0 q=0 json=0 m=7 l=3 h=-1 cp=65001 x=[*.bak] mod="},
        GoodCase{{"a", "--method=-lh6-", "a.lzh", "s"},
                 "cmd=a arc=a.lzh names=[s] w= f=0 i=0 q=0 json=0 m=6 l=-1 h=-1 cp=0 x=[] mod="},
        // After "--" everything is a name, dashes included.
        GoodCase{{"a", "a.lzh", "--", "-f", "--json"},
                 "cmd=a arc=a.lzh names=[-f,--json]" + kPlain},
        GoodCase{{"d", "a.lzh", "-"}, "cmd=d arc=a.lzh names=[-]" + kPlain}));

struct BadCase {
  std::vector<std::string> args;
  std::string errorPart;
};

class ParseBad : public ::testing::TestWithParam<BadCase> {};

TEST_P(ParseBad, IsAUsageError) {
  const ParseResult r = ParseCommandLine(GetParam().args);
  ASSERT_FALSE(r.ok()) << Describe(r.options);
  EXPECT_NE(r.error.find(GetParam().errorPart), std::string::npos) << r.error;
}

INSTANTIATE_TEST_SUITE_P(
    Errors, ParseBad,
    ::testing::Values(BadCase{{}, "no command"},
                      BadCase{{"k", "a.lzh"}, "unknown command 'k'"},
                      BadCase{{"-", "a.lzh"}, "missing command"},
                      BadCase{{"l"}, "no archive"},
                      BadCase{{"lk", "a.lzh"}, "unknown option '-k'"},
                      BadCase{{"a", "a.lzh"}, "nothing to add"},
                      BadCase{{"c", "a.lzh"}, "nothing to add"},
                      BadCase{{"d", "a.lzh"}, "members to delete"},
                      BadCase{{"ao", "a.lzh", "f"}, "-o needs 5, 6 or 7"},
                      BadCase{{"ao4", "a.lzh", "f"}, "-o needs 5, 6 or 7"},
                      BadCase{{"al5", "a.lzh", "f"}, "-l needs a level"},
                      BadCase{{"a3", "a.lzh", "f"}, "header level 3"},
                      BadCase{{"x", "-wout", "a.lzh"}, "-w=VALUE"},
                      BadCase{{"x", "a.lzh", "-w"}, "needs a value"},
                      BadCase{{"x", "-w=", "a.lzh"}, "non-empty"},
                      BadCase{{"l", "--bogus", "a.lzh"}, "unrecognized option '--bogus'"},
                      BadCase{{"l", "--json=1", "a.lzh"}, "takes no value"},
                      BadCase{{"a", "--method=lh1", "a.lzh", "f"}, "invalid method"},
                      BadCase{{"a", "--level=0", "a.lzh", "f"}, "invalid level"},
                      BadCase{{"a", "--level=x", "a.lzh", "f"}, "invalid level"},
                      BadCase{{"l", "--code-page=abc", "a.lzh"}, "invalid code page"},
                      BadCase{{"x", "--json", "a.lzh"}, "--json goes with"},
                      BadCase{{"l", "-w=o", "a.lzh"}, "-w names where"}));

TEST(ParseNotes, HeaderLevelsOtherThanOneAreNotedForWritingCommandsOnly) {
  EXPECT_EQ(ParseCommandLine({"a0", "a.lzh", "f"}).notes.size(), 1u);
  EXPECT_EQ(ParseCommandLine({"c2", "a.lzh", "f"}).notes.size(), 1u);
  EXPECT_NE(ParseCommandLine({"c2", "a.lzh", "f"}).notes[0].find("level-1"), std::string::npos);
  EXPECT_TRUE(ParseCommandLine({"a1", "a.lzh", "f"}).notes.empty());
  EXPECT_TRUE(ParseCommandLine({"x2", "a.lzh"}).notes.empty());
}

}  // namespace
}  // namespace kzcli
