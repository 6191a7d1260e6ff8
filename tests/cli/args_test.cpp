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

// The command, archive and names, then every other field of Options that
// differs from its default, so a table row states the whole result.
std::string Describe(const Options& o) {
  const Options d;
  std::string out = std::string("cmd=") + (o.commandLetter ? o.commandLetter : '-') + " arc=" + o.archive +
                    " names=[" + Join(o.names) + "]";
  auto field = [&](const char* name, const std::string& value, const std::string& fallback) {
    if (value != fallback) out += std::string(" ") + name + "=" + value;
  };
  field("w", o.outputDir, d.outputDir);
  field("f", std::to_string(o.force), std::to_string(d.force));
  field("i", std::to_string(o.ignorePaths), std::to_string(d.ignorePaths));
  field("q", std::to_string(o.quiet), std::to_string(d.quiet));
  field("json", std::to_string(o.json), std::to_string(d.json));
  field("help", std::to_string(o.help), std::to_string(d.help));
  field("version", std::to_string(o.version), std::to_string(d.version));
  field("m", std::to_string(o.method), std::to_string(d.method));
  field("l", std::to_string(o.level), std::to_string(d.level));
  field("h", std::to_string(o.headerLevel), std::to_string(d.headerLevel));
  field("cp", std::to_string(o.codePage), std::to_string(d.codePage));
  field("x", "[" + Join(o.excludes) + "]", "[" + Join(d.excludes) + "]");
  field("mod", o.modulePath, d.modulePath);
  return out;
}

struct GoodCase { std::vector<std::string> args; std::string expected; };

class ParseGood : public ::testing::TestWithParam<GoodCase> {};

TEST_P(ParseGood, GivesTheOptions) {
  const ParseResult r = ParseCommandLine(GetParam().args);
  ASSERT_TRUE(r.ok()) << r.error;
  EXPECT_EQ(Describe(r.options), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ParseGood,
    ::testing::Values(
        GoodCase{{"l", "a.lzh"}, "cmd=l arc=a.lzh names=[]"},
        GoodCase{{"-l", "a.lzh"}, "cmd=l arc=a.lzh names=[]"},
        GoodCase{{"v", "a.lzh", "x", "y/*"}, "cmd=v arc=a.lzh names=[x,y/*]"},
        // Classic glued clusters, with and without the leading dash.
        GoodCase{{"a1o6q", "b.lzh", "f1", "dir"}, "cmd=a arc=b.lzh names=[f1,dir] q=1 m=6 h=1"},
        GoodCase{{"xfw=out/dir", "a.lzh"}, "cmd=x arc=a.lzh names=[] w=out/dir f=1"},
        GoodCase{{"-xfw=DIR", "a.lzh"}, "cmd=x arc=a.lzh names=[] w=DIR f=1"},
        GoodCase{{"eiq", "a.lzh"}, "cmd=e arc=a.lzh names=[] i=1 q=1"},
        GoodCase{{"cz2", "a.lzh", "f"}, "cmd=c arc=a.lzh names=[f] l=0 h=2"},
        GoodCase{{"ul4o7", "a.lzh", "f"}, "cmd=u arc=a.lzh names=[f] m=7 l=4"},
        // Separate short options, anywhere after the command.
        GoodCase{{"x", "-w=o", "-f", "a.lzh", "-i", "n"}, "cmd=x arc=a.lzh names=[n] w=o f=1 i=1"},
        GoodCase{{"x", "-w", "o", "a.lzh"}, "cmd=x arc=a.lzh names=[] w=o"},
        GoodCase{{"a", "-x=*.o", "-x", "*.tmp", "a.lzh", "src"}, "cmd=a arc=a.lzh names=[src] x=[*.o,*.tmp]"},
        GoodCase{{"a", "-o5", "-l1", "-z", "a.lzh", "s"}, "cmd=a arc=a.lzh names=[s] m=5 l=0"},
        // Long options, with '=' or a separate value, before the command too.
        GoodCase{{"--module=/m.so", "l", "--json", "a.lzh"}, "cmd=l arc=a.lzh names=[] json=1 mod=/m.so"},
        GoodCase{{"x", "--output-dir", "o", "--force", "--quiet", "--ignore-paths", "a.lzh"},
                 "cmd=x arc=a.lzh names=[] w=o f=1 i=1 q=1"},
        GoodCase{{"a", "--method=lh7", "--level=3", "--code-page=65001", "--exclude=*.bak", "a.lzh", "s"},
                 "cmd=a arc=a.lzh names=[s] m=7 l=3 cp=65001 x=[*.bak]"},
        GoodCase{{"a", "--method=-lh6-", "a.lzh", "s"}, "cmd=a arc=a.lzh names=[s] m=6"},
        // After "--" everything is a name, dashes included.
        GoodCase{{"a", "a.lzh", "--", "-f", "--json"}, "cmd=a arc=a.lzh names=[-f,--json]"},
        GoodCase{{"d", "a.lzh", "-"}, "cmd=d arc=a.lzh names=[-]"}));

struct BadCase { std::vector<std::string> args; std::string errorPart; };

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
