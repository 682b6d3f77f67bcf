# Shared by the tool's script tests: a scratch directory, the loopback file
# server, and checks that say what failed.
set -euo pipefail
tool=$(realpath "$1")
server=$(realpath "$2")
work=$(mktemp -d)
server_pid=
failures=0
on_exit() {
    [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null && wait "$server_pid" 2>/dev/null
    rm -rf "$work"
}
trap on_exit EXIT

fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
check() { local what=$1; shift; "$@" || fail "$what"; }

# start_server [--slow RATE]: serves $work/www, uploads into $work/uploads.
start_server() {
    mkdir -p "$work/www" "$work/uploads"
    "$server" --root "$work/www" --upload-dir "$work/uploads" --port 0 --quiet "$@" > "$work/server.out" &
    server_pid=$!
    local i
    for i in $(seq 200); do
        grep -q '^listening on ' "$work/server.out" 2>/dev/null && break
        sleep 0.05
    done
    url="http://$(sed -n 's/^listening on //p' "$work/server.out")"
    [ "$url" != "http://" ] || { echo "file server did not start" >&2; exit 1; }
}

# wait_for SECONDS COMMAND...: polls until the command succeeds.
wait_for() {
    local limit=$1; shift
    local deadline=$((SECONDS + limit))
    until "$@"; do
        [ $SECONDS -lt $deadline ] || return 1
        sleep 0.1
    done
}

finish() {
    if [ $failures -eq 0 ]; then echo "all checks passed"; else echo "$failures checks failed"; exit 1; fi
}
