#!/usr/bin/env bash
# http-util in a real terminal (tmux): the copy's display and Ctrl+C, the
# terminal mode restored, the lines that announce each retry, and the
# download progress bar.
. "$(dirname "$0")/lib.sh"
command -v tmux >/dev/null || { echo "SKIP: no tmux"; exit 0; }
session=http-util-test-$$
tmux_cleanup() { tmux kill-session -t "$session" 2>/dev/null || true; on_exit; }
trap tmux_cleanup EXIT

# 4 MiB at 256 KiB/s: sixteen seconds, time enough to watch and cancel.
start_server --slow 262144
head -c $((4 * 1024 * 1024)) /dev/urandom > "$work/www/big.bin"
mkdir -p "$work/dest"
echo "the old destination" > "$work/dest/big.bin"

cat > "$work/copy.sh" <<SH
stty -g > "$work/stty.before"
"$tool" copy "$url/big.bin" "$work/dest/big.bin"
echo \$? > "$work/status"
stty -g > "$work/stty.after"
sleep 60
SH
tmux new-session -d -s "$session" -x 100 -y 20 "bash $work/copy.sh"
screen() { tmux capture-pane -p -t "$session"; }
ticking() { screen | grep -q 'Press Ctrl+C to quit' && screen | grep -q '!!'; }
check "display shows the banner and ticks" wait_for 15 ticking
tmux send-keys -t "$session" C-c
check "the copy ended after Ctrl+C" wait_for 10 test -s "$work/status"
check "status 16 (got $(cat "$work/status" 2>/dev/null))" [ "$(cat "$work/status" 2>/dev/null)" = 16 ]
check "message on the terminal" wait_for 2 sh -c "tmux capture-pane -p -J -t $session | grep -q 'http-util: copy .*: Operation canceled$'"
check "destination untouched" [ "$(cat "$work/dest/big.bin")" = "the old destination" ]
check "no temporary file left" [ "$(ls "$work/dest")" = "big.bin" ]
check "terminal mode restored" cmp -s "$work/stty.before" "$work/stty.after"
tmux kill-session -t "$session"

# A refused connection: each retry is announced, with its pause.
kill "$server_pid"; wait "$server_pid" 2>/dev/null || true
cat > "$work/retry.sh" <<SH
cd "$work"
"$tool" --wait 1 get --retries 1 "$url/x.bin" x.bin
"$tool" --wait 1 copy "$url/x.bin" x.bin
echo done > "$work/retry.status"
sleep 60
SH
tmux new-session -d -s "$session" -x 200 -y 30 "bash $work/retry.sh"
check "retries ended" wait_for 20 test -s "$work/retry.status"
tmux capture-pane -p -J -t "$session" > "$work/screen"
refused="connect failed (Connection refused)"
for line in "http-util: $refused; attempt 2 of 2 in 1 s" \
    "http-util: get $url/x.bin: Connect to server failed (Connection refused)" \
    "Press Ctrl+C to quit" "http-util: $refused; attempt 6 of 6 in 1 s"; do
    check "on the screen: $line" grep -qxF "$line" "$work/screen"
done
tmux kill-session -t "$session"

# The progress bar of get, drawn on standard error in the terminal.
start_server --slow $((20 * 1024 * 1024))
head -c $((50 * 1024 * 1024)) /dev/zero > "$work/www/fifty.bin"
cat > "$work/get.sh" <<SH
"$tool" get "$url/fifty.bin" "$work/fifty.bin"
echo \$? > "$work/get.status"
sleep 60
SH
tmux new-session -d -s "$session" -x 100 -y 20 "bash $work/get.sh"
bar() { screen | grep -qE '[0-9]+% [0-9.]+ MiB / 50.0 MiB  [0-9.]+ MiB/s'; }
check "progress bar drawn while it runs" wait_for 10 bar
check "get ended" wait_for 20 test -s "$work/get.status"
check "get status 0" [ "$(cat "$work/get.status")" = 0 ]
check "bar ends at 100%" sh -c "tmux capture-pane -p -t $session | grep -q '^100% 50.0 MiB / 50.0 MiB'"
check "file complete" cmp -s "$work/www/fifty.bin" "$work/fifty.bin"
finish
