#!/usr/bin/env bash
# scripts/trace against the running server: serverTraceTest.sh SCRIPT VORNSERVER BOARDSIM VORNCLIENT ULMO CASE
#
# Its session daemon is no other's: a user's by its own LTTNG_HOME, root's, whose paths are fixed, by namespaces, where
# the machine allows them. Ends with 77 where the trace tools are missing.
set -u

readonly script=$1 vornserver=$2 boardsim=$3 vornclient=$4 ulmo=$5 case=$6
readonly provider=com_norvane_radiosw_vornserver

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
export TMPDIR=$work LTTNG_HOME=$work RU_DIR=$work/ru
started=()
trap 'endPrograms; rm -rf "$work"' EXIT
# Each job a process group, as at a terminal, so that Ctrl-C can be sent.
set -m

fail()
{
    echo "FAILED: $1"
    head -50 "$work"/*.out "$work"/*.err
    exit 1
}

# Waits for a line in a file; everything here is done long before the deadline.
awaitLine()
{
    local left
    for ((left = 600; left > 0; --left)); do
        grep -q -- "$2" "$1" 2>/dev/null && return
        sleep 0.1
    done
    fail "no line '$2' in $(basename "$1")"
}

startProgram() # NAME PROGRAM...
{
    local name=$1
    shift
    "$@" >"$work/$name.out" 2>&1 &
    started+=($!)
}

startBoard() # before the server: it needs the software manager at its start
{
    startProgram boardsim "$boardsim"
    awaitLine "$work/boardsim.out" '^boardsim ready'
}

endPrograms()
{
    { kill "${started[@]}" && wait "${started[@]}"; } 2>/dev/null
    started=()
}

startTracing() # EVENT...
{
    bash "$script" --raw --output "$work/trace.out" "$@" 2>"$work/trace.err" &
    tracePid=$!
    awaitLine "$work/trace.err" '^tracing'
}

endTracing()
{
    kill -INT -- "-$tracePid"
    wait "$tracePid" || fail "tracing ends with $?"
}

# An event of the server with file, line, and these fields, as an extended regular expression.
hasEvent() # EVENT FIELDS
{
    grep -Eq " $provider:$1: .*\{ file = \"[A-Za-z]+\.(cpp|h)\", line = [1-9][0-9]*, $2 \}\$" "$work/trace.out" ||
        fail "no $1 with $2"
}

case $case in
clientConnects)
    startBoard
    startProgram server "$vornserver"
    "$vornclient" wait-published within 60 >"$work/published.out" 2>&1 || fail "the server is not published"
    startTracing
    "$vornclient" --timeout 30 connect "then" mmi 2 >"$work/client.out" 2>&1
    [[ $? == 1 ]] || fail "the client is not served"
    awaitLine "$work/trace.out" 'Client disconnected: DU_0'
    endTracing
    hasEvent INFO 'msg = "DU_0 initialized!"'
    hasEvent SEND_SIG 'obj = "-", sig_no = 0x1658001, pid = 0x[0-9A-F]+, msg = "OMLA_VORN_CONN_ESTABLISH_CFM\{clientRef=1, serverRef=1\}"'
    hasEvent SEND_SIG 'obj = "-", sig_no = 0x1707770, pid = 0x[0-9A-F]+, msg = "msgNo:0x1707770 procedureRef:[0-9]+ connectionRef:[0-9]+ tolme.dunl.ConnectivityConnectedReq:\{\}"'
    hasEvent REC_SIG 'obj = "-", sig_no = 0x1707771, msg = ".*"'
    hasEvent TRACE1 'obj = "-", msg = "Creating new session and FwdMbox named VornFwdMbox_0 for DU_0"'
    ;;
auBoot)
    startBoard
    "$ulmo" board legacy stop || fail "the legacy server does not stop"
    SYS_MODE=AUBOOT startProgram server "$vornserver"
    startTracing INFO
    "$ulmo" board legacy start || fail "the legacy server does not start"
    awaitLine "$work/trace.out" 'highestProtocolRev('
    endTracing
    grep -Eq 'msg = "Publishing cloned mailbox: VornServer \(0x[0-9a-f]+\) and highestProtocolRev\(1\)"' \
        "$work/trace.out" || fail "another protocol revision than 1"
    ;;
*)
    echo "no such case: $case"
    exit 1
    ;;
esac
endPrograms
grep -E 'ERROR: AddressSanitizer|runtime error:|LeakSanitizer|ThreadSanitizer' "$work"/*.out && fail "a sanitizer's report"
exit 0
