# Shared by the tool's script tests: a scratch directory (the working one), the loopback file
# server, and checks that say what failed.
set -euo pipefail
tool=$(realpath "$1") server=$(realpath "$2") work=$(mktemp -d) server_pid= failures=0
on_exit() { [ -z "$server_pid" ] || kill "$server_pid" 2> /dev/null || true; rm -rf "$work"; }
trap on_exit EXIT && cd "$work"
check() { local what=$1; shift; "$@" || { echo "FAIL: $what" >&2; failures=$((failures + 1)); }; }
wait_for() { local end=$((SECONDS + $1)); shift; until "$@"; do [ $SECONDS -lt $end ] || return 1; sleep 0.1; done; }
# serve [--slow BYTES_PER_SECOND]: www/ at $url, uploads into uploads/.
serve() {
    mkdir -p www uploads
    "$server" --root www --upload-dir uploads --port 0 --quiet "$@" > server.out &
    server_pid=$!
    wait_for 10 grep -q '^listening on ' server.out || { echo "file server did not start" >&2; exit 1; }
    url=http://$(sed -n 's/^listening on //p' server.out)
}
finish() { [ $failures -eq 0 ] || { echo "$failures checks failed"; exit 1; }; echo "all checks passed"; }
