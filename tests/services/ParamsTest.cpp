// Parameter references in text, command-line switches, the environment and Str2Bool.
#include <ostrel/services/Params.h>

#include <ostrel/core/Dump.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Variants.h>

#include <core/DumpUtil.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace ostrel {
namespace {

std::string U8(std::u8string_view s) { return std::string(s.begin(), s.end()); }

IPtr<IDump> SampleDump() {
  return testutil::DumpOf({{"name", 5},
                           {"long name", "LN"},
                           {"x", "X"},
                           {"1", "one"},
                           {"pct", "50%"},
                           {"nullv", Variant::Null()},
                           {"emptyv", Variant()}});
}

using Args = std::vector<AnsiString>;

std::string Stored(const IPtr<IDump>& d) {
  std::string s;
  for (Integer i = 0; i < d->get_Count(); ++i)
    s += d->get_Name(i) + "=" + VarToStr(d->get_Value(i)) + ";";
  return s;
}

TEST(ParseParams, SubstitutesReferences) {
  const struct {
    std::string text;
    char marker;
    std::u8string_view expected;
  } cases[] = {{"a%%b", '%', u8"a%b"},
               // clang-format off
               {"'%x'", '%', u8"'%x'"}, {"\"%x\"", '%', u8"\"%x\""},
               {"\"it's %x\" %x", '%', u8"\"it's %x\" X"},
               {"'unterminated %x", '%', u8"'unterminated %x"}, {"%name, more", '%', u8"5, more"},
               {"%NAME", '%', u8"5"}, {"%\"long name\"!", '%', u8"LN!"}, {"%x%x", '%', u8"XX"},
               {"%x\"y\"", '%', u8"X\"y\""}, {"%1st", '%', u8"%1st"}, {"%1 st", '%', u8"one st"},
               {"x%", '%', u8"x"}, {"%", '%', u8""}, {"[%nullv]", '%', u8"[]"},
               {"[%emptyv]", '%', u8"[%emptyv]"}, {"%abc", '%', u8"%abc"}, {"%,x", '%', u8"%,x"},
               {"%\"unterminated", '%', u8"%\"unterminated"}, {"%\"\"", '%', u8"%\"\""},
               {"#x #name ##", '#', u8"X 5 #"},
               {"%pct of %x", '%', u8"50% of X"},  // values are not scanned again
               {"%x\xDF", '%', u8"XЯ"},            // no letter beyond ASCII belongs to a name
               // clang-format on
               {std::string("%x\0%name", 8), '%', u8"X"}};
  for (const auto& c : cases)
    EXPECT_EQ(AnsiToUtf8(ParseParams(c.text, SampleDump(), c.marker, false)), U8(c.expected))
        << c.text;
}

TEST(ParseParams, NonStrictListsWhatWasMissing) {
  IPtr<IDump> d = SampleDump();
  const Integer before = d->get_Count();
  EXPECT_EQ(ParseParams("%abc %\"q q\" %emptyv %x %,", d), "%abc %\"q q\" %emptyv X %,");
  ASSERT_EQ(d->get_Count(), before + 3);
  EXPECT_EQ(Stored(d).substr(Stored(SampleDump()).size()), "abc=;q q=;=;");
  for (Integer i = before; i < before + 3; ++i) EXPECT_TRUE(VarIsEmpty(d->get_Value(i)));
  // A lone marker at the end asks for nothing.
  EXPECT_EQ(ParseParams("total%", d), "total");
  EXPECT_EQ(d->get_Count(), before + 3);
  EXPECT_EQ(ReplaceParams("%abc=%name", d), "%abc=5");
}

TEST(ParseParams, StrictRaisesAndLeavesTheDumpAlone) {
  IPtr<IDump> d = SampleDump();
  const Integer before = d->get_Count();
  // clang-format off
  struct Case { const char* text; const char* message; } cases[] = {
      {"ok %x, then %abc", "Parameter \"abc\" not found"}, {"%,", "Parameter \"\" not found"},
      {"%\"no such\"", "Parameter \"no such\" not found"},
      {"%emptyv", "Value of parameter \"emptyv\" is empty"}};
  // clang-format on
  for (const Case& c : cases) {
    EXPECT_EQ(testutil::MessageOf([&] { ParseParams(c.text, d, '%', true); }), c.message);
    EXPECT_EQ(testutil::MessageOf([&] { ReplaceParams(c.text, d, '%', true); }), c.message);
  }
  EXPECT_EQ(d->get_Count(), before);
  EXPECT_EQ(ParseParams("[%nullv] %name%", d, '%', true), "[] 5");
}

TEST(GetCmdParams, SwitchesAndValues) {
  struct Case {
    Args args;
    bool strip;
    const char* stored;
  } cases[] = {{{"a.exe", "-q", "/v=1", "-n", ":7", "-m", "="}, false, "-q=;-v=1;-n=7;-m=;"},
               {{"a.exe", "-user=ivan"}, false, "-user=ivan;"},
               {{"a.exe", "-user", "=ivan"}, false, "-user=ivan;"},
               {{"a.exe", "-user", ":ivan"}, false, "-user=ivan;"},
               {{"a.exe", "-user=", " ivan"}, false, "-user=ivan;"},
               {{"a.exe", "/user", "=", "ivan"}, false, "-user=ivan;"},
               {{"a.exe", "/user", "=", "ivan"}, true, "user=ivan;"},
               {{"a.exe", "-x", "/x"}, true, "x=;"},
               {{"a.exe", "-a=1", "-A=2"}, false, "-a=2;"},
               {{"a.exe", "-a", "", "-b"}, false, "-a=;"},
               {{"a.exe", "-a=", ""}, false, "-a=;"},
               {{"a.exe", "-conn=a=b", "-t", "=", "-u"}, false, "-conn=a=b;-t=-u;"},
               {{"a.exe", "file.txt"}, false, "-file.txt=;"},
               {{"a.exe", "file.txt"}, true, "file.txt=;"},
               {{"a.exe", "-", ":"}, true, "=;"},
               {{"a.exe"}, false, ""},
               {{}, false, ""}};
  for (const Case& c : cases) {
    IPtr<IDump> d = GetDumpIntf();
    GetCmdParams(d, c.strip, c.args);
    EXPECT_EQ(Stored(d), c.stored) << (c.args.size() > 1 ? c.args[1] : "");
  }
}

TEST(GetCmdParams, ReadsTheRealCommandLineOfTheProcess) {
#if defined(__linux__) || defined(_WIN32)
  // The child of a death test is this program started again with extra switches; it reads
  // them from its own command line, not from anything handed over.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
  const std::string self = std::string(info->test_suite_name()) + "." + info->name();
  EXPECT_EXIT(
      {
        IPtr<IDump> d = GetDumpIntf();
        GetCmdParams(d, true);
        Variant filter;
        const bool ok = Dump_GetValue(d, "-gtest_filter", filter) && VarToStr(filter) == self &&
                        d->IndexOf("-gtest_internal_run_death_test") >= 0 &&
                        !GetProcessArgs().empty();
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
#else
  GTEST_SKIP() << "no way to read the process's own arguments here";
#endif
}

TEST(Str2Bool, TruthWords) {
  // clang-format off
  struct Case { std::u8string_view text; bool value; } cases[] = {
      {u8"1", true}, {u8"T", true}, {u8"t", true}, {u8"TRUE", true}, {u8"true", true},
      {u8"True", true}, {u8"Y", true}, {u8"y", true}, {u8"YES", true}, {u8"yes", true},
      {u8"Д", true}, {u8"д", true}, {u8"ДА", true}, {u8"да", true}, {u8"Да", true}, {u8"OK", true},
      {u8"ok", true}, {u8"ON", true}, {u8"on", true}, {u8"", false}, {u8"2", false}, {u8"0", false},
      {u8" YES", false}, {u8"YES ", false}, {u8"yess", false}, {u8"F", false}, {u8"нет", false},
      {u8"-1", false}};
  // clang-format on
  for (const Case& c : cases) EXPECT_EQ(Str2Bool(Ansi(c.text)), c.value) << U8(c.text);
}

// The system's own view of a variable, and a change made by the system's own call: the
// environment block child processes inherit. On Windows that is not the C runtime's copy that
// getenv reads, which SetEnvironmentVariableA never updates.
std::optional<std::string> SystemGetEnv(const char* name) {
#if defined(_WIN32)
  char buf[256];
  const DWORD n = GetEnvironmentVariableA(name, buf, sizeof buf);
  if (n == 0 || n >= sizeof buf) return std::nullopt;
  return std::string(buf, n);
#else
  const char* v = std::getenv(name);
  return v ? std::optional<std::string>(v) : std::nullopt;
#endif
}
void SystemSetEnv(const char* name, const std::string& value) {
#if defined(_WIN32)
  ASSERT_TRUE(SetEnvironmentVariableA(name, value.c_str()));
#else
  ASSERT_EQ(setenv(name, value.c_str(), 1), 0);
#endif
}
// What the system holds for a CP1251 text: the bytes themselves on Windows, UTF-8 elsewhere.
std::string SystemForm(std::u8string_view text) {
#if defined(_WIN32)
  return Ansi(text);
#else
  return U8(text);
#endif
}

TEST(Environment, ReadsAndWritesTheSystemsEnvironment) {
  const AnsiString ivan = Ansi(u8"Иван");
  ASSERT_TRUE(SetEnv("OSTREL_TEST_VAR", ivan));
  EXPECT_EQ(GetEnv("OSTREL_TEST_VAR", "def"), ivan);
  EXPECT_EQ(SystemGetEnv("OSTREL_TEST_VAR"), SystemForm(u8"Иван"));
  SystemSetEnv("OSTREL_TEST_VAR", SystemForm(u8"Пётр"));
  EXPECT_EQ(GetEnv("OSTREL_TEST_VAR"), Ansi(u8"Пётр"));
  const std::string longValue(1000, 'x');  // longer than any first guess at a buffer
  ASSERT_TRUE(SetEnv("OSTREL_TEST_VAR", longValue));
  EXPECT_EQ(GetEnv("OSTREL_TEST_VAR"), longValue);

  ASSERT_TRUE(SetEnv("OSTREL_TEST_VAR", ""));
  EXPECT_EQ(GetEnv("OSTREL_TEST_VAR", "def"), "def");
  EXPECT_EQ(GetEnv("OSTREL_TEST_UNSET_VAR", "def"), "def");
  EXPECT_EQ(GetEnv("OSTREL_TEST_UNSET_VAR"), "");
  EXPECT_EQ(GetEnv("", "def"), "def");
  EXPECT_FALSE(SetEnv("", "x"));
  EXPECT_FALSE(SetEnv("A=B", "x"));
  EXPECT_FALSE(SetEnv(std::string("A\0B", 3), "x"));
  EXPECT_FALSE(SetEnv("OSTREL_TEST_VAR", std::string("x\0y", 3)));
}

TEST(Environment, ComputerNameIsTheSystemsOwn) {
  const AnsiString name = GetComputerNameStr();
  EXPECT_FALSE(name.empty());
#if defined(_WIN32)
  // Windows hands every process its computer name in COMPUTERNAME as well.
  const AnsiString announced = GetEnv("COMPUTERNAME");
  if (announced.empty()) GTEST_SKIP() << "this system sets no COMPUTERNAME to compare with";
  EXPECT_TRUE(AnsiSameText(name, announced)) << name << " / " << announced;
#else
  std::ifstream in("/proc/sys/kernel/hostname");
  std::string host;
  if (!std::getline(in, host)) GTEST_SKIP() << "no /proc/sys/kernel/hostname to compare with";
  EXPECT_EQ(name, Utf8ToAnsi(host));
#endif
}

TEST(Environment, LoginInfoReachesTheApplicationVariables) {
  ASSERT_TRUE(SetEnvLoginInfo(Ansi(u8"петров"), "secret"));
  EXPECT_EQ(GetEnv("APP$PWD"), "secret");
  ASSERT_TRUE(SetEnv("APP$PROFILE", "main"));
  ASSERT_TRUE(SetEnv("APP$DBN", ""));

  IPtr<IDump> d = GetDumpIntf();
  d->set_ByName("UID", Variant("old"));
  LoadAppVars(d);
  EXPECT_FALSE(GetComputerNameStr().empty());
  EXPECT_EQ(Stored(d), Ansi(u8"UID=петров;USER_NAME=петров;PROFILE_NAME=main;DATABASE_NAME=;") +
                           "COMPUTER_NAME=" + GetComputerNameStr() + ";PID=main;DBN=;");
  EXPECT_EQ(VarType(d->get_ByName("DBN")), varString);
  EXPECT_LT(d->IndexOf("APP$PWD"), 0);
}

}  // namespace
}  // namespace ostrel
