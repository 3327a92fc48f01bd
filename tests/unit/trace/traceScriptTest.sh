#!/usr/bin/env bash
# The provider and scripts/trace end to end: traceScriptTest.sh SCRIPT EMITTER CASE
#
# Its session daemon is no other's: a user's by its own LTTNG_HOME, root's, whose paths are fixed, by namespaces, where
# the machine allows them. Ends with 77 where the trace tools are missing.
set -u

readonly script=$1 emitter=$2 case=$3
readonly provider=com_norvane_radiosw_vornserver
readonly allEvents=(ERROR INFO STATE_CHANGE TRACE1 TRACE2 TRACE3 TRACE4 TRACE5 TRACE6 TRACE7 REC_SIG SEND_SIG DATA
    TRACE_UTS1 TRACE_UTS2 TRACE_UTS3 TRACE_UTS4 TRACE_UTS5 TRACE_UTS6 TRACE_UTS7)

for program in lttng lttng-sessiond lttng-relayd babeltrace2; do
    if ! command -v "$program" >/dev/null; then
        echo "skipped: $program is not installed (packages lttng-tools and babeltrace2)"
        exit 77
    fi
done

if [[ -z ${TRACE_TEST_PRIVATE:-} ]]; then
    namespaces=(unshare --mount --pid --fork --kill-child --mount-proc)
    if ((EUID == 0)) && "${namespaces[@]}" mount -t tmpfs none /run 2>/dev/null; then
        TRACE_TEST_PRIVATE=yes exec "${namespaces[@]}" bash "$0" "$@"
    fi
    TRACE_TEST_PRIVATE=no
fi
if [[ $TRACE_TEST_PRIVATE == yes ]]; then
    mount -t tmpfs none /run && mount -t tmpfs none /dev/shm || exit 1
fi

work=$(mktemp -d) || exit 1
export TMPDIR=$work LTTNG_HOME=$work
trap 'rm -rf "$work"' EXIT
# Each job a process group, as at a terminal, so that Ctrl-C can be sent.
set -m

failures=0
check()
{
    local what=$1
    shift
    if ! "$@"; then
        echo "FAILED: $what"
        failures=$((failures + 1))
    fi
}

# Waits for a line in a file; everything here is done long before the deadline.
awaitLine()
{
    local left
    for ((left = 600; left > 0; --left)); do
        grep -q -- "$2" "$1" 2>/dev/null && return
        sleep 0.1
    done
    echo "FAILED: no line '$2' in $(basename "$1")"
    head -50 "$work"/*.out "$work"/*.err
    exit 1
}

startTracing() # NAME argument...
{
    local name=$1
    shift
    bash "$script" "$@" >"$work/$name.out" 2>"$work/$name.err" &
    tracePid=$!
    awaitLine "$work/$name.err" '^tracing'
}

awaitDaemon()
{
    local left
    for ((left = 600; left > 0; --left)); do
        pgrep '^lttng-sessiond' >/dev/null && return
        sleep 0.02
    done
}

interrupt()
{
    kill -INT -- "-$1"
    wait "$1"
    check "tracing ends with 0" test $? -eq 0
}

emit() # event that is awaited...
{
    "$emitter" "$@" </dev/null >"$work/emitter.out" 2>"$work/emitter.err"
    check "the emitter ran" test $? -eq 0
    check "nothing on its standard error" test ! -s "$work/emitter.err"
}

noDaemonLeft()
{
    [[ $TRACE_TEST_PRIVATE == no ]] || ! pgrep -l '^lttng'
}

nothingLeft()
{
    check "no daemon is left" noDaemonLeft
    check "no working directory is left" test -z "$(find "$work" -maxdepth 1 -name 'vornTrace.*')"
}

hasEvent() # FILE EVENT FIELDS: exactly one such event, with exactly these fields behind file and line
{
    local line
    line=$(grep -F " $provider:$2: " "$1")
    [[ $line =~ \{\ file\ =\ \"traceEmitter.cpp\",\ line\ =\ [1-9][0-9]*,\ (.*)\ \}$ && ${BASH_REMATCH[1]} == "$3" ]] ||
        { echo "$2: got '$line', expected '$3'" && return 1; }
}

eventsOf() # names of the events in our own format
{
    awk '{ printf "%s ", $2 }' "$1"
}

checkFields()
{
    local raw=$work/raw.out level
    local bytes='data = [ [0] = 0x0, [1] = 0x1, [2] = 0xAB, [3] = 0xFF ], datalen = 4'
    local uts='sec = 1700000000, usec = 42, process = "yarrowi"'
    check ERROR hasEvent "$raw" ERROR 'msg = "ABN: error of emitter"'
    check INFO hasEvent "$raw" INFO 'msg = "info"'
    check STATE_CHANGE hasEvent "$raw" STATE_CHANGE \
        'obj = "-", msg = "a \"quoted\" text, with = { all }\n\\ of it"'
    for level in 1 2 3 4 5 6 7; do
        check "TRACE$level" hasEvent "$raw" "TRACE$level" "obj = \"-\", msg = \"$level\""
    done
    check REC_SIG hasEvent "$raw" REC_SIG 'obj = "-", sig_no = 0x1659100, msg = "received"'
    check SEND_SIG hasEvent "$raw" SEND_SIG 'obj = "-", sig_no = 0x1659101, pid = 0x10002, msg = "sent"'
    check DATA hasEvent "$raw" DATA "obj = \"-\", msg = \"bytes\", _data_length = 4, $bytes"
    check TRACE_UTS1 hasEvent "$raw" TRACE_UTS1 "$uts, msg = \"uts1\", _data_length = 4, $bytes"
    for level in 2 3 4 5 6; do
        check "TRACE_UTS$level" hasEvent "$raw" "TRACE_UTS$level" \
            "$uts, msg = \"uts$level\", _data_length = 0, data = [ ], datalen = 0"
    done
    check TRACE_UTS7 hasEvent "$raw" TRACE_UTS7 "$uts, msg = \"uts7\", _data_length = 4, $bytes"
}

case $case in
emitterFirst)
    mkfifo "$work/go"
    "$emitter" "${allEvents[@]}" <"$work/go" >"$work/emitter.out" 2>&1 &
    emitterPid=$!
    exec 5>"$work/go"
    awaitLine "$work/emitter.out" '^ready'
    startTracing raw --raw
    echo go >&5
    wait "$emitterPid"
    check "the emitter ran" test $? -eq 0
    awaitLine "$work/raw.out" ":TRACE_UTS7: " # the reader may have only just begun
    interrupt "$tracePid"
    checkFields
    ;;
emitterLast)
    startTracing raw --raw --output "$work/raw.file"
    emit "${allEvents[@]}"
    awaitLine "$work/raw.file" ":TRACE_UTS7: "
    interrupt "$tracePid"
    check "nothing on standard output" test ! -s "$work/raw.out"
    mv "$work/raw.file" "$work/raw.out"
    checkFields
    ;;
selection)
    startTracing some INFO 'TRACE_UTS*'
    emit INFO TRACE_UTS{1..7}
    awaitLine "$work/some.out" ' TRACE_UTS7 '
    interrupt "$tracePid"
    check "only the events asked for" test "$(eventsOf "$work/some.out")" = \
        "INFO TRACE_UTS1 TRACE_UTS2 TRACE_UTS3 TRACE_UTS4 TRACE_UTS5 TRACE_UTS6 TRACE_UTS7 "
    ;;
formatted)
    startTracing all --seconds 600
    emit "${allEvents[@]}"
    awaitLine "$work/all.out" ' TRACE_UTS7 ' # comes while tracing goes on
    interrupt "$tracePid"
    check "each event once, in order" test "$(eventsOf "$work/all.out")" = "${allEvents[*]} "
    for line in 'ERROR traceEmitter.cpp:N ABN: error of emitter' \
        'STATE_CHANGE traceEmitter.cpp:N a "quoted" text, with = { all }\n\\ of it' \
        'SEND_SIG traceEmitter.cpp:N 0x1659101 -> 0x10002 sent' \
        'DATA traceEmitter.cpp:N bytes (4) 00 01 ab ff' \
        'TRACE_UTS2 traceEmitter.cpp:N 1700000000.000042 yarrowi uts2 (0)'; do
        check "$line" grep -qxF "$line" \
            <(sed -E 's/^[0-9:]{8}\.[0-9]{6} ([A-Z0-9_]+) +/\1 /; s/:[0-9]+ /:N /' "$work/all.out")
    done
    ;;
twoAtOnce)
    startTracing one
    one=$tracePid
    startTracing two INFO
    two=$tracePid
    interrupt "$one" # started the session daemon, which the other still needs
    emit INFO
    awaitLine "$work/two.out" ' INFO '
    interrupt "$two"
    check "nothing after its end" test ! -s "$work/one.out"
    ;;
interrupted)
    bash "$script" >"$work/early.out" 2>"$work/early.err" &
    early=$!
    awaitDaemon # it has begun to start things, and is not done
    kill -TERM "$early"
    wait "$early"
    nothingLeft
    bash "$script" --seconds 1 >"$work/timed.out" 2>"$work/timed.err"
    check "the time limit ends tracing" test $? -eq 0
    ;;
calls)
    refuses() # exit code, part of the message, PATH, argument...
    {
        local message code
        message=$(PATH=$3 "$BASH" "$script" "${@:4}" 2>&1 >/dev/null)
        code=$?
        [[ $code == "$1" && $message == *"$2"* ]] || { echo "got $code: $message" && return 1; }
    }
    mkdir "$work/empty"
    check "missing packages are named" refuses 1 "lttng-tools babeltrace2" "$work/empty"
    check "an unknown option" refuses 2 "--nonsense" "$PATH" --nonsense
    check "a duration that is none" refuses 2 "--seconds" "$PATH" --seconds 1s
    check "a value left out" refuses 2 "--output" "$PATH" --output
    check "an event that is none" refuses 2 "rec_sig" "$PATH" rec_sig
    check "an output that cannot be written" refuses 1 "/nowhere/file" "$PATH" --output "$work/nowhere/file"
    ;;
*)
    echo "no such case: $case"
    exit 1
    ;;
esac
nothingLeft

if ((failures > 0)); then
    head -50 "$work"/*.out "$work"/*.err
    exit 1
fi
