#!/usr/bin/env bash
# The `ostrel` program as a user meets it: --version, --help, the demo's key lines in UTF-8
# and in CP1251, arguments converted on the way in, and exit status 2 for bad usage.
#
# usage: cli_test.sh OSTREL_BINARY VERSION [RUNNER...]
# RUNNER is the command that starts a cross-built program on this host (Wine for ostrel.exe).
set -uo pipefail
# For grep's sake only: the program itself never looks at the locale.
export LC_ALL=C.UTF-8

ostrel=$1 version=$2
shift 2
runner=("$@")
work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-cli.XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# expect_line FILE REGEX WHAT: some line of FILE matches the extended REGEX.
expect_line() {
  grep -Eq -- "$2" "$1" || fail "$3: no line matching /$2/ in:"$'\n'"$(cat "$1")"
}

# run NAME ARGS...: runs ostrel, keeping stdout, stderr and the exit status under NAME.
run() {
  local name=$1
  shift
  "${runner[@]}" "$ostrel" "$@" >"$work/$name.out" 2>"$work/$name.err"
  echo $? >"$work/$name.rc"
  windows_lines "$work/$name.out" "$work/$name.err"
}
# A Windows program ends its text lines with CR LF, as Windows does; the checks read lines.
windows_lines() {
  if [[ $ostrel == *.exe ]]; then sed -i 's/\r$//' "$@"; fi
}
status() { cat "$work/$1.rc"; }

# --version and --help
run version --version
[[ $(status version) == 0 ]] || fail "--version exited $(status version)"
[[ $(cat "$work/version.out") == "ostrel $version" ]] ||
  fail "--version printed '$(cat "$work/version.out")', not 'ostrel $version'"

run help --help
[[ $(status help) == 0 ]] || fail "--help exited $(status help)"
expect_line "$work/help.out" '^  demo +Show the platform layer' "--help lists demo with its summary"

run demohelp demo --help
expect_line "$work/demohelp.out" '^Usage: ostrel demo \[TEXT\.\.\.\]$' "demo --help"

# The demo in UTF-8
run demo demo
[[ $(status demo) == 0 ]] || fail "demo exited $(status demo): $(cat "$work/demo.err")"
demo=$work/demo.out
expect_line "$demo" '^  VarToStr\(Variant\(1234\.5\)\) += 1234,5$' "float variant as Russian text"
expect_line "$demo" '^  VarToDouble\(Variant\("1234,5"\)\) \+ 0\.25 += 1234,75$' "Russian text variant as a number"
expect_line "$demo" '= 12\.04\.1961 9:07:00$|= 12\.04\.1961 09:07:00$' "date variant as text"
expect_line "$demo" '^  VarType of that variant += 7$' "date variant type code"
expect_line "$demo" '^  AnsiUpperCase\("ёлка и Ёж"\) += ЁЛКА И ЁЖ$' "Cyrillic upper case with Ё"
expect_line "$demo" '^  AnsiLowerCase\("ЁЛКА И ЁЖ"\) += ёлка и ёж$' "Cyrillic lower case with Ё"
expect_line "$demo" '^  AnsiSameText\("ёж", "ЁЖ"\) += True$' "case-insensitive Cyrillic"
expect_line "$demo" '^  AnsiCompareText\("ель", "ёлка"\) += -1$' "Ё sorts after Е"
expect_line "$demo" '^  AnsiCompareText\("ёлка", "ящик"\) += -1$' "Ё sorts before Я"
expect_line "$demo" '^    1\. Москва$' "first token"
expect_line "$demo" '^    2\. Санкт-Петербург$' "second token, trimmed"
expect_line "$demo" '^    3\. Казань$' "third token after an empty field"
grep -Eq '^    4\.' "$demo" && fail "the empty field between ';;' became a token"
expect_line "$demo" "= [Сс]реда, 12 [^ ]+ 1961 г\. 09:07$" "FormatDateTime with Russian names"
expect_line "$demo" '^  IncMonth\(31\.01\.2024\) += 29\.02\.2024$' "IncMonth clamps to the month's end"
# A '?' would mean a character lost in a code page conversion.
grep -q '?' "$demo" && fail "the demo output holds '?' (a lost character)"
if command -v iconv >/dev/null 2>&1; then
  iconv -f UTF-8 -t UTF-8 "$demo" >/dev/null 2>&1 || fail "the demo output is not valid UTF-8"
  # --cp1251 writes the same text as raw CP1251 bytes.
  run raw --cp1251 demo
  iconv -f UTF-8 -t CP1251 "$demo" >"$work/expected1251"
  cmp -s "$work/raw.out" "$work/expected1251" || fail "--cp1251 output is not the demo in CP1251"
  # Arguments are converted on the way in: UTF-8 normally, CP1251 under --cp1251.
  run arg demo "ёж-Ёлкин"
  expect_line "$work/arg.out" '^  AnsiUpperCase\("ёж-Ёлкин"\) += ЁЖ-ЁЛКИН$' "UTF-8 argument folded"
  # Windows hands a program its arguments as Unicode whatever it asked for, so there the
  # argument is text and only the output is CP1251.
  rawarg=$(printf 'ёж' | iconv -f UTF-8 -t CP1251)
  [[ $ostrel == *.exe ]] && rawarg='ёж'
  run rawarg demo --cp1251 "$rawarg"
  iconv -f CP1251 -t UTF-8 "$work/rawarg.out" >"$work/rawarg.utf8"
  expect_line "$work/rawarg.utf8" '^  AnsiLowerCase\("ёж"\) += ёж$' "CP1251 argument under --cp1251"
  expect_line "$work/rawarg.utf8" '^  AnsiUpperCase\("ёж"\) += ЁЖ$' "CP1251 argument folded"
else
  echo "iconv is not installed: encoding checks skipped"
fi

# Bad usage: a message on stderr, nothing on stdout, exit status 2.
check_usage() {
  local name=$1 message=$2
  shift 2
  run "$name" "$@"
  [[ $(status "$name") == 2 ]] || fail "'ostrel $*' exited $(status "$name"), not 2"
  [[ -s $work/$name.out ]] && fail "'ostrel $*' wrote to stdout"
  expect_line "$work/$name.err" "$message" "'ostrel $*' explains itself"
}
check_usage noargs 'no command given'
check_usage unknown "unknown command 'frobnicate'" frobnicate
check_usage badopt "unknown option '--frob'" --frob demo
check_usage cyrcmd "unknown command 'ёжик'" ёжик

# The service commands: one value from the arguments, or one per line of standard input.
check_cmd() {  # check_cmd NAME EXPECTED ARGS...: exit 0 and this exact output
  local name=$1 expected=$2
  shift 2
  run "$name" "$@"
  [[ $(status "$name") == 0 ]] || fail "$name exited $(status "$name"): $(cat "$work/$name.err")"
  [[ $(cat "$work/$name.out") == "$expected" ]] ||
    fail "$name printed '$(cat "$work/$name.out")', expected '$expected'"
}
check_cmd words "Одна тысяча двести тридцать четыре рубля 56 копеек" words 1234.56
check_cmd words_en "Twenty-one dollars 00 cents" words 21 --lang EN --currency USD
check_cmd number "две тысячи одна" number 2001 --gender f
check_cmd round "2.68" round 2.675 2
check_cmd round_even "-2" round -2.5 0 --mode drHalfEven
check_cmd params "Сумма: 100, клиент Иванов" params 'Сумма: %sum, клиент %name' sum=100 name=Иванов
check_cmd bankday "23.03.2026 (понедельник)" bankday 20.03.2026 1
run period period 3 15.05.2025
expect_line "$work/period.out" '^text +2 квартал 2025$' "period text of a quarter"
run steps steps 01.01.2025 31.12.2025 3
expect_line "$work/steps.out" '^12 steps$' "twelve monthly steps in a year"
run dump dump 'a=1;b=текст'
expect_line "$work/dump.out" $'a:3=1 <TAB> b:256=текст' "typed form of a dump"
printf '1\n2,5\nabc\n' | "${runner[@]}" "$ostrel" words >"$work/stdin.out" 2>"$work/stdin.err"
rc=$?
windows_lines "$work/stdin.out" "$work/stdin.err"
[[ $rc == 1 ]] || fail "words with a bad input line exited $rc, not 1"
[[ $(sed -n 2p "$work/stdin.out") == "Два рубля 50 копеек" ]] || fail "second stdin line: $(cat "$work/stdin.out")"
grep -q "'abc'" "$work/stdin.err" || fail "the bad line is not named in the error: $(cat "$work/stdin.err")"

if [[ $failures -gt 0 ]]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "cli test: passed"
