#!/usr/bin/env bash
# http-util in a real terminal (tmux): Ctrl+C cancels a copy and the terminal mode comes back,
# get draws its progress bar, and each retry is announced with its pause.
. "$(dirname "$0")/lib.sh"
command -v tmux > /dev/null || { echo "SKIP: no tmux"; exit 0; }
tmux() { command tmux -S "$work/tmux" "$@"; }  # a server of its own, its socket not in /tmp
trap 'tmux kill-server 2> /dev/null || true; on_exit' EXIT
serve --slow 262144  # 4 MiB take 16 s: time enough to cancel
head -c $((4 << 20)) /dev/urandom > www/big.bin && head -c $((512 << 10)) /dev/urandom > www/half.bin
mkdir dest && echo "the old destination" > dest/big.bin
cat > run.sh <<SH
stty -g > stty.before; "$tool" copy "$url/big.bin" dest/big.bin; echo \$? > copy.status; stty -g > stty.after
"$tool" get "$url/half.bin" half.bin; echo \$? > get.status
"$tool" --wait 1 get --retries 1 http://127.0.0.1:1/x.bin x.bin; "$tool" --wait 1 copy http://127.0.0.1:1/x.bin x.bin
echo done > retry.status; sleep 60
SH
tmux new-session -d -x 200 -y 50 "bash run.sh"
screen() { tmux capture-pane -p -J -S -; }
ticking() { screen | grep -q 'Press Ctrl+C to quit' && screen | grep -q '!!'; }
check "copy shows its ticks" wait_for 15 ticking
tmux send-keys C-c
check "the copy ends after Ctrl+C" wait_for 20 test -s retry.status
screen > screen.txt
check "copy status 16" [ "$(cat copy.status)" = 16 ]
check "copy message" grep -q "^http-util: copy .*: Operation canceled$" screen.txt
check "destination untouched, no temporary file" [ "$(cat dest/*)" = "the old destination" ]
check "terminal mode restored" cmp stty.before stty.after
check "get draws its bar to 100%" grep -q '^100% 512.0 KiB / 512.0 KiB' screen.txt
check "get status 0, file complete" sh -c '[ "$(cat get.status)" = 0 ] && cmp www/half.bin half.bin'
refused="connect failed (Connection refused)"
for line in "http-util: $refused; attempt 2 of 2 in 1 s" "Press Ctrl+C to quit" \
    "http-util: get http://127.0.0.1:1/x.bin: Connect to server failed (Connection refused)" \
    "http-util: $refused; attempt 6 of 6 in 1 s"; do
    check "on the screen: $line" grep -qxF "$line" screen.txt
done
finish
