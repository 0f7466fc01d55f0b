#!/usr/bin/env bash
# A printer on another machine, both ends on loopback: the virtual printer behind ser2net, socat at the host.
#     network.sh PASSBOOK PASSBOOK-SIM
# shellcheck disable=SC2317  # called through await
set -euo pipefail
tool=$1 sim=$2 PATH=$PATH:/usr/sbin
for each in ser2net socat; do
  command -v $each >/dev/null || { echo "network: skipped, there is no $each"; exit 77; }
done
work=$(mktemp -d) printer_pid='' ser2net_pid='' socat_pid=''
port=..$work/port  # for the library a name below /dev
end() { for each in "$@"; do [ -z "$each" ] || { kill "$each"; wait "$each"; } 2>/dev/null || true; done; }
trap 'end "$socat_pid" "$ser2net_pid" "$printer_pid"; rm -rf "$work"' EXIT
cd "$work"
fail() { echo "network: $*: $(tail -n 5 out err ser2net.log socat.log 2>&1)"; exit 1; }
await() { local last=$((SECONDS + 60)); until "$@"; do [ $SECONDS -lt $last ] || fail "in vain: $*"; sleep 0.05; done; }
# An address that no other process takes, so its ports are free.
address=127.$(($$ >> 16 & 127 | 1)).$(($$ >> 8 & 255)).$(($$ & 255))
number=$(python3 -c 'import socket, sys; s = socket.socket(); s.bind((sys.argv[1], 0)); print(s.getsockname()[1])' "$address")

start_printer() {
  "$sim" --link printer --events "$@" >/dev/null & printer_pid=$!
  await test -e printer
}
start_ser2net() {
  printf '%%YAML 1.1\n---\nconnection: &passbook0\n  accepter: tcp(nodelay),%s\n  connector: serialdev,%s,9600n81,local\n' \
    "$address,$number" "$(readlink printer)" >ser2net.yaml
  printf '  options: {kickolduser: true}\n' >>ser2net.yaml
  ser2net -d -u -c ser2net.yaml >ser2net.log 2>&1 & ser2net_pid=$!
}
# Whether the printer answers through the net. A connection that came too early is made again.
answers() {
  kill -0 "$socat_pid" 2>/dev/null || {
    socat "tcp:$address:$number,nodelay,linger=0,retry=300,interval=0.1" "pty,rawer,link=port" 2>socat.log & socat_pid=$!
  }
  timeout 60 "$tool" --port "$port" status >out 2>err
}
page() { local status=0; timeout 120 "$tool" --port "$port" "$@" page.json >out 2>err || status=$?; echo $status; }
events() { sed 's/"ms":[0-9]*,//' "$1"; }
texts() { events "$1" | grep -a '"event":"text"' || true; }
taken() { grep -aq '"what":"taken"' "$1"; }  # what was sent last has come, too
seventh() { [ "$(texts "$1" | wc -l)" -ge 7 ]; }

for i in {1..12}; do steps+="${steps:+,}{\"text\": \"存入 line $i\", \"x\": 10, \"y\": $((i * 8))}"; done
echo "{\"family\": \"oli\", \"steps\": [$steps]}" >page.json
# From the seventh text on the printer is out of reach. The end of the connection is the end of that.
echo '{"rules": [{"when": {"text": "", "nth": 7}, "then": {"answers": "missing"}},
                 {"when": {"host": "closed", "each": true}, "then": {"answers": "right"}}]}' >cut.json

start_printer here
port=..$work/printer
"$tool" --port "$port" status >out 2>err || fail 'the printer here'
[ "$(page page)" = 0 ] || fail 'a page here'
await taken here
end "$printer_pid"
port=..$work/port

start_printer there
start_ser2net
await answers
[ "$(page page)" = 0 ] || fail 'a page through the net'
await taken there
end "$socat_pid" "$ser2net_pid" "$printer_pid"
diff <(events here) <(events there) || fail 'through the net something else happens'

# The seventh line is handed over. What the printer says of it never comes.
for cut in socat ser2net; do
  start_printer "$cut" --scenario cut.json
  start_ser2net
  await answers
  { await seventh "$cut"; if [ $cut = socat ]; then kill "$socat_pid"; else kill "$ser2net_pid"; fi; } & cutter=$!
  status=$(page --json --trace "$cut.trace" page --journal "$cut.journal")
  wait $cutter
  [[ $status = 5 && $(<out) =~ '"name": "inDoubt"'.*'"ink": "sent"'.*'"nextStep": 9,' ]] || fail "$cut ended: status $status"
  "$tool" decode "$cut.trace" >decoded
  grep -q 'YARDO_PR2_GetPrinterStatus = -3 PASSBOOK_NOT_SENT: Input/output error' decoded || fail "$(tail decoded)"
  kill -0 "$ser2net_pid" 2>/dev/null || start_ser2net
  await answers
  [ "$(page page --journal "$cut.journal" --resume)" = 5 ] || fail 'what is in doubt is printed again'
  [ "$(page page --journal "$cut.journal" --resume --skip 9)" = 0 ] || fail 'it does not go on'
  end "$socat_pid" "$ser2net_pid" "$printer_pid"
  diff <(texts here) <(texts "$cut") || fail "after the end of $cut the page is another one"
done
