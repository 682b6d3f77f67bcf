#!/usr/bin/env bash
# http-util as a script or a person calls it, without a terminal: exit
# statuses, the one-line failure message, and the transfers themselves.
. "$(dirname "$0")/lib.sh"
start_server
head -c 300000 /dev/urandom > "$work/www/a.bin"

# strerror and help
check "strerror 16" [ "$("$tool" strerror 16)" = "Operation canceled" ]
check "strerror -1" [ "$("$tool" strerror -1)" = "Unknown error" ]
check "--help" "$tool" --help > /dev/null
for sub in copy get put strerror; do
    check "$sub --help" "$tool" $sub --help > /dev/null
done
set +e
"$tool" get 2> "$work/err"; rc=$?
set -e
check "missing URL gives 2 (got $rc)" [ $rc -eq 2 ]

# get: saved byte-identical, nothing on standard error when it is no terminal
"$tool" get "$url/a.bin" "$work/got.bin" 2> "$work/err"
check "get saved the file" cmp -s "$work/www/a.bin" "$work/got.bin"
check "get printed nothing on a non-terminal stderr" [ ! -s "$work/err" ]

# get without FILE saves under the URL's name in the current directory
(cd "$work" && mkdir -p cwd && cd cwd && "$tool" get "$url/a.bin")
check "get without FILE" cmp -s "$work/www/a.bin" "$work/cwd/a.bin"

# failure: exit status is the result code, one line with the message
set +e
"$tool" --wait 0 get --retries 0 "$url/missing.bin" "$work/missing.bin" 2> "$work/err"; rc=$?
set -e
check "404 gives 18 (got $rc)" [ $rc -eq 18 ]
check "one line: the message" [ "$(cat "$work/err")" = "http-util: Server response: Not Found" ]

set +e
"$tool" copy "$work/www/a.bin" "$work/b.bin" 2> "$work/err"; rc=$?
set -e
check "two local paths give 17 (got $rc)" [ $rc -eq 17 ]

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
set +e
"$tool" put --source-ip 300.1.1.1 "$work/www/a.bin" "$url/upload" 2>/dev/null; rc=$?
set -e
check "bad source address gives 2 (got $rc)" [ $rc -eq 2 ]

# --log - writes the library's records to standard error
"$tool" --log - get "$url/a.bin" "$work/logged.bin" 2> "$work/err"
check "log records on stderr" grep -q 'download file result: Success' "$work/err"
finish
