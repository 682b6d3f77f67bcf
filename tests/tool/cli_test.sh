#!/usr/bin/env bash
# http-util as a script calls it, without a terminal: the transfers, and for each failure its
# exit status (the result code; 2 for a wrong command line) and its one-line message.
. "$(dirname "$0")/lib.sh"
serve
head -c 300000 /dev/urandom > www/a.bin && u=$url/a.bin
check "--version names the library it loaded" grep -qE '^libhttp_util 1[.0-9]* [(]/' <("$tool" --version)
for sub in "" copy get put; do check "$sub --help" "$tool" $sub --help > /dev/null; done
check "strerror" [ "$("$tool" strerror 16)/$("$tool" strerror -1)" = "Operation canceled/Unknown error" ]
expect() {  # STATUS MESSAGE ARGS...
    local want="$1 $2" rc=0; shift 2
    "$tool" "$@" > /dev/null 2> err || rc=$?
    check "$*: got $rc $(head -n 1 err)" [ "$rc $(head -n 1 err)" = "$want" ]
}
full="Save file failed, maybe no enough space left on device" && mkdir folder
expect 23 "http-util: get $u: $full (cannot write nodir/x/out.bin: No such file or directory)" get "$u" nodir/x/out.bin
expect 23 "http-util: get $u: $full (cannot write folder: Is a directory)" get "$u" folder
expect 23 "http-util: copy $u to folder: $full (cannot write folder: Is a directory)" copy -q "$u" folder
expect 17 "http-util: copy $u to $url/b: Request not support (SRC and DST are both URLs)" copy "$u" "$url/b"
expect 17 "http-util: copy ftp://h/a to b: Request not support (only http:// URLs are supported)" copy ftp://h/a b
expect 17 "http-util: copy a to b: Request not support (one of SRC and DST must be an http:// URL)" copy a b
expect 6 "http-util: get 'not a url': Only HTTP protocol is supported (URLs begin with http://)" get 'not a url'
expect 18 "http-util: get $url/no.bin: Server response: Not Found" --wait 0 get --retries 0 "$url/no.bin"
expect 2 "http-util: unknown subcommand frob (copy, get, put or strerror; see --help)" frob
expect 2 "--retries: -1 is not a whole number from 0 to 2147483647" get --retries -1 "$u"
expect 2 "URL is required" get
expect 4 "http-util: cannot open log /no/x.log: No such file or directory" --log /no/x.log --wait 0 get --retries 0 \
    http://127.0.0.1:1/x
expect 2 "http-util: --source-ip: not an IPv4 address: 300.1.1.1" put --source-ip 300.1.1.1 www/a.bin "$url/up"
check "failures leave no file behind" [ -z "$(ls | grep -e '^out' -e '^b$' -e '^folder.')" ]

"$tool" get "$u" got.bin 2> err
check "get saves the file, drawing nothing on a standard error that is no terminal" sh -c 'cmp www/a.bin got.bin && [ ! -s err ]'
mkdir cwd && (cd cwd && "$tool" get "$u")
check "get without FILE saves under the URL's name" cmp www/a.bin cwd/a.bin
echo old > dest.bin
"$tool" copy "$u" dest.bin > out
check "copy replaces the destination" cmp www/a.bin dest.bin
check "copy shows its display on standard output" grep -qx 'Press Ctrl+C to quit' out
check "copy leaves no temporary file" [ -z "$(ls | grep '^dest\.bin\.')" ]
check "copy -q up prints nothing" [ -z "$("$tool" copy -q dest.bin "$url/up")" ]
check "copy up arrives" cmp www/a.bin uploads/dest.bin
for ip in "" 127.0.0.3; do
    rm -f uploads/a.bin && "$tool" put ${ip:+--source-ip $ip} www/a.bin "$url/up"
    check "put ${ip:+--source-ip $ip} arrives" cmp www/a.bin uploads/a.bin
done
"$tool" --log run.log get "$u" logged.bin && "$tool" --log - get "$u" logged.bin 2>> run.log
check "--log FILE and --log - take the records" [ "$(grep -c 'file result: Success' run.log)" = 2 ]
finish
