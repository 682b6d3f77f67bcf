#!/usr/bin/env bash
# http-util as a script or a person calls it, without a terminal: exit
# statuses, the one-line failure message, and the transfers themselves.
. "$(dirname "$0")/lib.sh"
start_server
head -c 300000 /dev/urandom > "$work/www/a.bin"

# strerror, help and version
check "strerror 16" [ "$("$tool" strerror 16)" = "Operation canceled" ]
check "strerror -1" [ "$("$tool" strerror -1)" = "Unknown error" ]
check "--help documents status 2" sh -c "'$tool' --help | grep -q '^Exit status: .* 2 when'"
for sub in copy get put; do
    check "$sub --help lists the options that work after it" \
        sh -c "'$tool' $sub --help | grep -q -- '--wait N'"
done
check "--version names both" sh -c "'$tool' --version | grep -qE '^libhttp_util 1[.0-9]* [(]/'"

# get: saved byte-identical, nothing on standard error when it is no terminal
"$tool" get "$url/a.bin" "$work/got.bin" 2> "$work/err"
check "get saved the file" cmp -s "$work/www/a.bin" "$work/got.bin"
check "get printed nothing on a non-terminal stderr" [ ! -s "$work/err" ]

# get without FILE saves under the URL's name in the current directory
(cd "$work" && mkdir -p cwd && cd cwd && "$tool" get "$url/a.bin")
check "get without FILE" cmp -s "$work/www/a.bin" "$work/cwd/a.bin"

# A failure: the exit status is the result code, and one line names the
# operation, the URL or file, and what the system said (2: a wrong command line).
expect() {  # STATUS FIRST-LINE-OF-STDERR ARGS...
    local want=$1 line=$2 rc=0
    shift 2
    (cd "$work" && "$tool" "$@" > /dev/null 2> "$work/err") || rc=$?
    check "$* gives $want (got $rc)" [ $rc -eq "$want" ]
    check "$*: message (got: $(head -n 1 "$work/err"))" [ "$(head -n 1 "$work/err")" = "$line" ]
}
u=$url/a.bin
full="Save file failed, maybe no enough space left on device"
mkdir "$work/folder"
expect 23 "http-util: get $u: $full (cannot write nodir/x/out.bin: No such file or directory)" \
    get "$u" nodir/x/out.bin
expect 23 "http-util: get $u: $full (cannot write folder: Is a directory)" get "$u" folder
expect 23 "http-util: copy $u to folder: $full (cannot write folder: Is a directory)" \
    copy -q "$u" folder
expect 17 "http-util: copy $u to $url/b: Request not support (SRC and DST are both URLs)" \
    copy "$u" "$url/b"
expect 17 "http-util: copy ftp://h/a to b: Request not support (only http:// URLs are supported)" \
    copy ftp://h/a b
expect 17 "http-util: copy a to b: Request not support (one of SRC and DST must be an http:// URL)" \
    copy a b
expect 6 "http-util: get 'not a url': Only HTTP protocol is supported (URLs begin with http://)" \
    get 'not a url'
expect 18 "http-util: get $url/missing.bin: Server response: Not Found" \
    --wait 0 get --retries 0 "$url/missing.bin"
expect 2 "http-util: unknown subcommand frob (copy, get, put or strerror; see --help)" frob
expect 2 "--retries: -1 is not a whole number from 0 to 2147483647" get --retries -1 "$u"
expect 2 "URL is required" get
expect 2 "http-util: --source-ip: not an IPv4 address: 300.1.1.1" \
    put --source-ip 300.1.1.1 "$work/www/a.bin" "$url/upload"
check "no stray files" [ "$(ls "$work" | grep -c -e '^out' -e '^b$' -e '^folder.')" -eq 0 ]

# copy down with the display (to standard output), then up again
echo old > "$work/dest.bin"
"$tool" copy "$url/a.bin" "$work/dest.bin" > "$work/out"
check "copy replaced the destination" cmp -s "$work/www/a.bin" "$work/dest.bin"
check "copy display" grep -q '^Press Ctrl+C to quit$' "$work/out"
check "no temporary file left" [ "$(ls "$work" | grep -c '^dest\.bin\.')" -eq 0 ]
"$tool" copy -q "$work/dest.bin" "$url/upload" > "$work/out"
check "quiet copy prints nothing" [ ! -s "$work/out" ]
check "upload arrived" cmp -s "$work/www/a.bin" "$work/uploads/dest.bin"

# put, plain and with a source address
"$tool" put "$work/www/a.bin" "$url/upload"
check "put arrived" cmp -s "$work/www/a.bin" "$work/uploads/a.bin"
rm "$work/uploads/a.bin"
"$tool" put --source-ip 127.0.0.3 "$work/www/a.bin" "$url/upload"
check "put --source-ip arrived" cmp -s "$work/www/a.bin" "$work/uploads/a.bin"

# --log - writes the library's records to standard error
"$tool" --log - get "$url/a.bin" "$work/logged.bin" 2> "$work/err"
check "log records on stderr" grep -q 'download file result: Success' "$work/err"
finish
