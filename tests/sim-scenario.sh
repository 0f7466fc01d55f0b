#!/usr/bin/env bash
# passbook-sim under control: a scenario, the control socket, the folder of pages.
#     sim-scenario.sh PASSBOOK-SIM
# shellcheck disable=SC2317  # called through check
set -euo pipefail
sim=$1 bad=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
wrong() { echo "sim-scenario: line ${BASH_LINENO[1]}: $*"; bad=1; }
check() { "$@" || wrong "not so: $*"; }
# expect STATUS ERRORS ARGUMENT...: how passbook-sim ends, and a pattern for what is on standard error
expect() {
  local status=0
  timeout 60 "$sim" "${@:3}" >out 2>err || status=$?
  [ "$status" = "$1" ] && [[ $(<err) =~ $2 ]] || wrong "passbook-sim ${*:3}: status $status (not $1): $(cat out err)"
}

echo '{"family": "oli", "rules": [{"name": "t", "when": {"text": ""}, "then": []}], "expect": [{"pages": 1}, {"fired": "t"}]}' >t.json
expect 7 '^$' --scenario t.json --pages pages -- sh -c 'printf "text\r" >/dev/{}; exit 7'
check [ "$(cd pages && echo *)" = '0001.jsonl 0001.png' ]
check grep -q '"event":"text"' pages/0001.jsonl
expect 1 'pages: has pages already' --pages pages -- true
expect 1 '^passbook-sim: t.json:1: /expect/0: there are 0 pages, and 1 are expected' --scenario t.json -- true
expect 2 'other family' --scenario t.json --family oki -- true
expect 2 'is larger than 1 MiB' --scenario /dev/zero -- true
expect 1 ': Address already in use' --control "$work" -- true
expect 0 '^$' --control control -- true
check [ ! -e control ]

timeout 60 python3 - "$sim" <<'END' || wrong 'the control socket'
import contextlib, json, os, socket, stat, subprocess, sys

def start(*options):
    printer = subprocess.Popen([sys.argv[1], '--control', 'control', *options], stdout=subprocess.PIPE, text=True)
    return printer, printer.stdout.readline().split()[1]

def connect():
    client = socket.socket(socket.AF_UNIX)
    client.settimeout(30)
    client.connect('control')
    return client, client.makefile('rw')

printer, port = start('--link', 'link')
assert stat.S_IMODE(os.stat('control').st_mode) == 0o600
_, lines = connect()
def ask(**request):
    lines.write(json.dumps(request) + '\n')
    lines.flush()
    answer = json.loads(lines.readline())
    return answer.pop('ok'), answer
host = os.open('/dev/' + port, os.O_RDWR | os.O_NOCTTY)
os.write(host, b'\033|A024one\r\033(two\r')
ok, met = ask(wait={'event': {'event': 'text', 'bold': True}, 'since': 0}, id=[7])
assert ok and met['id'] == [7] and met['event']['page'] == 1 and met['event']['pitch'] == 10, met
assert met['event']['extent']['right'] - met['event']['extent']['left'] == 54, met
assert [each['text'] for each in ask(page='texts')[1]['texts']] == ['one', 'two']
png = os.path.abspath('so-far.png')
assert ask(page={'png': png}) == (True, {'page': 1}) and os.path.getsize(png) > 100
assert ask(expect=[{'picture': png}, {'pages': 2}])[1]['unmet'] == \
    ['/expect/1: there are 1 pages, and 2 are expected']
assert ask(do={'insert': True}) == (False, {'error': "/do can't be done now"})
assert ask(do=[{'take': True}, {'jam': 5}])[1]['error'].startswith('/do/1/jam must be')
assert ask(rule={'name': 'r', 'when': {'command': 'eject'}, 'then': {'line': 'drop'}}) == (True, {})
os.write(host, b'\033O')
assert ask(wait={'fired': 'r'})[1] == {'met': True}
try:
    os.write(host, b'x')
    assert False, 'the line is cut'
except OSError:
    pass
ask(state=True)
assert ask(state=True)[1]['port'] == '' and not os.path.lexists('link')
assert ask(do={'line': 'back'})[0] and ask(state=True)[1]['port'].startswith('pts/')
first = ask(events=0)[1]
assert [each['n'] for each in first['events']] == list(range(first['next'])), first

# Noise, a line without an end, brackets, and more clients than there may be do no harm.
for noise in os.urandom(65536), b'x' * 70000, b'[' * 60000 + b'\n', b'\n' * 65536, b'{"do":' * 9000 + b'\n':
    client, _ = connect()
    with contextlib.suppress(OSError):
        client.sendall(noise)
        client.shutdown(socket.SHUT_WR)
        while client.recv(65536):
            pass
crowd = [connect() for _ in range(9)]
assert 'connections already' in crowd[-1][1].readline()
for client, file in crowd:
    file.close()
    client.close()
assert ask(state=True)[0]
printer.terminate()
assert printer.wait(30) == 0 and not os.path.exists('control')

# What a killed run leaves is no obstacle; who is tied to a client ends with it, even while that waits.
printer, _ = start()
printer.kill()
printer.wait()
printer, port = start('--baud', '9600', '--buffer', '512')
client, lines = connect()
assert ask(tie=True)[0]
host = os.open('/dev/' + port, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
sent = 0
try:
    while sent < 1000000:
        sent += os.write(host, b'\033(' * 500)
except BlockingIOError:
    pass
assert 512 <= sent < 100000, sent
lines.write('{"wait": {"paper": "out"}, "timeout": 600}\n')
lines.close()
client.close()
assert printer.wait(30) == 0 and not os.path.exists('control')
END
exit $bad
