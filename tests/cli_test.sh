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
# run_status CODE NAME ARGS...: run, and expect that exit status.
run_status() {
  local want=$1 name=$2
  shift
  run "$@"
  [[ $(status "$name") == "$want" ]] ||
    fail "'ostrel ${*:2}' exited $(status "$name"), not $want: $(cat "$work/$name.err")"
}

# --version and --help
run_status 0 version --version
[[ $(cat "$work/version.out") == "ostrel $version" ]] ||
  fail "--version printed '$(cat "$work/version.out")', not 'ostrel $version'"

run_status 0 help --help
expect_line "$work/help.out" '^  demo +Show the platform layer' "--help lists demo with its summary"

run demohelp demo --help
expect_line "$work/demohelp.out" '^Usage: ostrel demo \[TEXT\.\.\.\]$' "demo --help"

# The demo in UTF-8
run_status 0 demo demo
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
  run_status 2 "$name" "$@"
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
  run_status 0 "$name" "$@"
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
# An empty text reads back as an empty value, which the round trip must count as kept.
run dump_empty dump 'a=' 'b=x'
expect_line "$work/dump_empty.out" 'read back gives the same values: yes' "empty value in a dump"
printf '1\n2,5\nabc\n' | "${runner[@]}" "$ostrel" words >"$work/stdin.out" 2>"$work/stdin.err"
rc=$?
windows_lines "$work/stdin.out" "$work/stdin.err"
[[ $rc == 1 ]] || fail "words with a bad input line exited $rc, not 1"
[[ $(sed -n 2p "$work/stdin.out") == "Два рубля 50 копеек" ]] || fail "second stdin line: $(cat "$work/stdin.out")"
grep -q "'abc'" "$work/stdin.err" || fail "the bad line is not named in the error: $(cat "$work/stdin.err")"

# ostrel xml on the sample payment orders: files are CP1251 with CR LF, the terminal UTF-8.
payments=$(dirname "$0")/../examples/xml/payments.xml
printf '<a>\r\n  <b x="1">\r\n</a>\r\n' >"$work/bad.xml"
run_status 1 xmlcheck xml check "$payments" "$work/bad.xml" "$work/none.xml"
expect_line "$work/xmlcheck.out" '/payments\.xml: ok$' "xml check of the sample"
expect_line "$work/xmlcheck.out" '/bad\.xml:3:[0-9]+: Ошибка в формате XML\. Отсутствует завершающий таг "</b>"$' \
  "xml check names the line of a reader error"
expect_line "$work/xmlcheck.out" '/none\.xml: .+' "xml check of a missing file"
run xmlformat xml format "$payments" -o "$work/formatted.xml"
cmp -s "$payments" "$work/formatted.xml" || fail "xml format does not write the sample back byte for byte"
run formatted --cp1251 xml format "$payments"
cmp -s <(tr -d '\r' <"$payments") "$work/formatted.out" || fail "xml format to a CP1251 terminal"
check_cmd xmlattr 'ООО "Ромашка"' xml find "$payments" 'payment[@number="318"]/payer' --attr name
check_cmd xmlvalue 'Оплата электроэнергии за февраль 2026 г.' \
  xml find "$payments" 'payment[@kind="СРОЧНО"]/purpose' --value
check_cmd xmlitem '<purpose>Предоплата по контракту № 7/2026</purpose>' \
  xml find "$payments" '/payment[@number="319" @currency="usd"]/purpose'
run xmlattrs xml find "$payments" 'payment[@number="319"]' --attrs
expect_line "$work/xmlattrs.out" '^sum=1021\.05$' "xml find --attrs lists the attributes"
expect_line "$work/xmlattrs.out" '^payee=Globex Ltd\.$' "xml find --attrs lists the attributes"
run_status 1 xmlmissing xml find "$payments" 'payment[@number="999"]/purpose'
expect_line "$work/xmlmissing.err" '^ostrel: FindXPath fail "payment\[@number="999"\]/purpose"$' "path in the not-found message"
expect_line "$work/xmlmissing.err" '^Tag <payment> not found$' "tag in the not-found message"
run xmlnoattr xml find "$payments" 'payment' --attr nothing
expect_line "$work/xmlnoattr.err" '^ostrel: Tag <payment>: аttribute "nothing" not found$' "xml find of a missing attribute"
run_status 2 xmlusage xml find "$payments"
iconv -f UTF-8 -t CP1251 >"$work/fixes.xml" <<'EOF'
<fixes>
  <documents>
    <payment number="317" fix="d"/>
    <payment number="319"><purpose fix="u">Возврат предоплаты</purpose></payment>
    <payment number="320" sum="1" fix="a"/>
  </documents>
</fixes>
EOF
run_status 0 xmlfix xml fix "$payments" "$work/fixes.xml" -o "$work/fixed.xml"
check_cmd xmlfixed 'Возврат предоплаты' xml find "$work/fixed.xml" 'payment[@number="319"]/purpose' --value
check_cmd xmlfirst '318' xml find "$work/fixed.xml" 'payment' --attr number
check_cmd xmladded '1' xml find "$work/fixed.xml" 'payment[@number="320"]' --attr sum
expect_line "$demo" '^    Сумма: 15.320,46 \(Пятнадцать тысяч триста двадцать рублей 46 копеек\)$' \
  "the demo's payment order with the amount in words"
# `ostrel layout`: the example form, frame and schema drawn, merged, hidden and saved; a
# fatal merge error printed with exit status 1.
layouts=$(cd "$(dirname "${BASH_SOURCE[0]}")/../examples/layouts" && pwd)
run_status 0 layout_show layout show "$layouts/form.xml"
expect_line "$work/layout_show.out" '^  Buttons: btnOk \(TButton\), btnCancel \(TButton\)$' "layout show draws a panel"
run_status 0 layout_merge layout merge "$layouts/form.xml" "$layouts/frame.xml" "$layouts/schema.xml"
[[ $(sed -n 4,9p "$work/layout_merge.out") == $'    Customer: edCustomer (TkxLookupEdit)\n    Address: edCity (TkxEdit)\n      Street: edStreet (TkxEdit)\n    Amount: edAmount (TkxEdit)\n  Contacts: edPhone (TkxEdit)\n  Buttons: btnOk (TButton), btnCancel (TButton)' ]] ||
  fail "layout merge placed the frame's panels wrongly: $(cat "$work/layout_merge.out")"
[[ $(tail -1 "$work/layout_merge.out") == AddressGrid ]] || fail "the frame keeps no panels after the merge"
run layout_hide layout merge "$layouts/form.xml" "$layouts/frame.xml" "$layouts/schema.xml" --no-merge
expect_line "$work/layout_hide.out" '^    Street: edStreet \(TkxEdit, hidden\)$' "--no-merge hides the frame's sources"
run layout_save layout merge "$layouts/form.xml" "$layouts/frame.xml" "$layouts/schema.xml" -o "$work/merged.xml"
[[ $(status layout_save) == 0 && ! -s "$work/layout_save.out" ]] || fail "layout merge -o: $(cat "$work/layout_save.err")"
run layout_reshow layout show "$work/merged.xml"
[[ $(cat "$work/layout_reshow.out") == "$(sed '$d' "$work/layout_merge.out")" ]] ||
  fail "the saved merge reads back differently: $(cat "$work/layout_reshow.out")"
sed 's/targetname="btnOk"/targetname="btnHelp"/' "$layouts/schema.xml" >"$work/badschema.xml"
run_status 1 layout_bad layout merge "$layouts/form.xml" "$layouts/frame.xml" "$work/badschema.xml"
[[ $(cat "$work/layout_bad.err") == "ostrel: $work/badschema.xml: item 2 of 2 (edPhone root > btnHelp root): TkxLayoutMergeSchema: TargetPoint  = nil" ]] ||
  fail "a failing merge printed '$(cat "$work/layout_bad.err")'"
# ... and draws the layouts as the failure left them: the first item applied, the second not.
expect_line "$work/layout_bad.out" '^    Address: edCity \(TkxEdit\)$' "the item before the failure stays applied"
expect_line "$work/layout_bad.out" '^  Contacts: edPhone \(TkxEdit\)$' "the failing item's panel stays in the frame"
run_status 2 layout_usage layout merge "$layouts/form.xml"
# --no-merge with both layouts saved: the hidden state of the frame is kept in its file.
run layout_frame layout merge "$layouts/form.xml" "$layouts/frame.xml" "$layouts/schema.xml" --no-merge \
  -o "$work/nm-form.xml" --frame-out="$work/nm-frame.xml"
[[ $(status layout_frame) == 0 && ! -s "$work/layout_frame.out" ]] || fail "layout merge --frame-out: $(cat "$work/layout_frame.err")"
run layout_frame_show layout show "$work/nm-frame.xml"
expect_line "$work/layout_frame_show.out" '^    Street: edStreet \(TkxEdit, hidden\)$' "--frame-out saves the hidden sources"
# A misspelt attribute is an error naming the file, line and column and the allowed names.
sed 's/targetshift=""/shift=""/' "$layouts/schema.xml" >"$work/misspelt.xml"
run_status 1 layout_misspelt layout merge "$layouts/form.xml" "$layouts/frame.xml" "$work/misspelt.xml"
expect_line "$work/layout_misspelt.err" "^ostrel: $work/misspelt\.xml:[0-9]+:3: unknown attribute \"shift\" of <item>; allowed: mode, source, sourceshift, target, targetname, targetshift$" \
  "a misspelt attribute names its place"
# Pictures: well-formed XML, one group per panel and control.
run layout_svg layout show "$layouts/form.xml" --svg "$work/form.svg"
run layout_merge_svg layout merge "$layouts/form.xml" "$layouts/frame.xml" "$layouts/schema.xml" --svg "$work/merge.svg"
run_status 0 svgcheck xml check "$work/form.svg" "$work/merge.svg"
[[ $(grep -c '<g class="panel' "$work/form.svg") == 6 ]] || fail "the form's picture has not one group per panel"
[[ $(grep -c '<g class="panel' "$work/merge.svg") == 20 ]] || fail "the merge picture has not four layouts' panels"
# 300 000 nested panels are drawn, not a crash.
{ printf '<layout name="Deep">'; yes '<panel>' | head -n 300000 | tr -d '\n'
  yes '</panel>' | head -n 300000 | tr -d '\n'; printf '</layout>'; } >"$work/deep.xml"
run layout_deep layout show "$work/deep.xml"
[[ $(status layout_deep) == 0 && $(wc -l <"$work/layout_deep.out") == 300001 ]] ||
  fail "layout show of 300000 nested panels: status $(status layout_deep), $(wc -l <"$work/layout_deep.out") lines"

# One way of taking arguments for every command.
run cmds --help
for cmd in $(sed -n '/^Commands:/,/^$/p' "$work/cmds.out" | sed -n 's/^  \([a-z]\+\( [a-z]\+\)\?\)  .*/\1/p' | tr ' ' '_'); do
  words=(${cmd//_/ })
  run_status 0 "help_$cmd" "${words[@]}" --help
  expect_line "$work/help_$cmd.out" "^Usage: ostrel ${words[*]}( |$)" "'${words[*]} --help' shows the usage"
  expect_line "$work/help_$cmd.out" '^  --help +show this help$' "'${words[*]} --help' lists the options"
done
run_status 0 help_late layout merge a.xml b.xml --help
expect_line "$work/help_late.out" '^  --frame-out OUT ' "--help after arguments"
check_cmd eq_value "Twenty-one dollars 00 cents" words 21 --lang=EN --currency=USD
check_cmd eq_mode "2" round --mode=HalfEven 2.5 0
check_cmd negative "-3" round -- -2.5 0
run_status 1 dashdash xml check -- -p.xml
expect_line "$work/dashdash.out" '^-p\.xml: .+' "'--' hands '-p.xml' to the command"
# A bad value typed by the user is bad usage (2); a library error is 1, printed one way.
check_usage bad_date "'32.01.2025' is not a valid date" bankday 32.01.2025 1
check_usage bad_count 'N must be an integer' bankday 01.01.2025 x
check_usage bad_amount "'abc'" words abc
check_usage bad_places "not 'x'" round 2.5 x
check_usage bad_lang "XX" words 1 --lang XX
check_usage bad_flag "option --strict takes no value" params x --strict=1
check_usage bad_merge_opt "unknown option '--frob' for 'layout merge'" layout merge a b c --frob
check_usage no_sub "layout needs a command: merge, show" layout
run lib_error bankday 31.12.9999 1
[[ $(status lib_error) == 1 && $(cat "$work/lib_error.err") == "ostrel: bankday: the result lies outside the years 1 to 9999" ]] ||
  fail "a library error printed '$(cat "$work/lib_error.err")' with status $(status lib_error)"
run missing_xml xml format "$work/none.xml"
run missing_layout layout show "$work/none.xml"
[[ $(status missing_xml) == 1 && $(status missing_layout) == 1 ]] || fail "a missing file is not status 1"
cmp -s "$work/missing_xml.err" "$work/missing_layout.err" ||
  fail "xml and layout report a missing file differently: $(cat "$work/missing_xml.err" "$work/missing_layout.err")"
grep -q 'Exception:' "$work"/*.err && fail "an error names an exception class"
# Serial devices: bad usage, and a device that is not there.
check_usage serial_noport 'serial takes PORT' serial
check_usage scan_badbaud '--baud must be a positive integer' scan 1 --baud fast
run_status 1 scan_missing scan /nonexistent/tty --count 1
expect_line "$work/scan_missing.err" 'Устройство /nonexistent/tty недоступно: нет такого устройства\.' \
  "scan names the missing device and why"
check_usage serial_rawlines '--raw and --lines exclude each other' serial 1 --raw --lines
# Natively only: qemu-user does not pass the terminal ioctls on, and Wine has .ci/wine.sh.
if [[ $ostrel != *.exe && ${#runner[@]} -eq 0 ]]; then
  # A path names itself and the reason, never the default port number.
  mkdir -p "$work/adir"
  for case in "/dev/null:это не последовательный порт и не терминал" "$work/adir:это каталог"; do
    path=${case%%:*} reason=${case#*:}
    run_status 1 serial_path serial "$path" </dev/null
    expect_line "$work/serial_path.err" "Устройство $path недоступно: $reason\.\$" "serial $path says why"
  done
  # A device that stalls, goes away or meets a signal, over pseudo-terminals.
  if command -v python3 >/dev/null 2>&1; then
    python3 "$(dirname "$0")/devices/serial_cli_check.py" "$ostrel" || fail "the serial commands over pseudo-terminals"
  else
    echo "cli test: python3 missing; the serial commands over pseudo-terminals are not checked" >&2
  fi
fi

if [[ $failures -gt 0 ]]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "cli test: passed"
