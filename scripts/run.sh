# Sourced: building, and running commands so that Ctrl-C, or a signal to this script alone, ends them at any moment.
# shellcheck shell=bash

# A shell started in the background of another script is born with SIGINT ignored, which bash cannot undo from within.
if [[ $(trap -p INT) == "trap -- '' SIGINT" ]]; then
    exec env --default-signal=INT "$0" "$@"
fi

job_running=

# Runs a command in a process group of its own and returns its status. While it runs, signals reach this shell at once.
run() {
    local status=0
    set -m
    "$@" </dev/null &
    set +m
    job_running=$!
    wait "$job_running" || status=$?
    job_running=
    return "$status"
}

group_is_alive() { kill -0 -- "-$job_running" 2>/dev/null; }

# Passes the interrupt on, so that the command can end in order; after 15 seconds there is no asking any more.
end_job() {
    local tenths=150
    [[ -n $job_running ]] || return 0
    kill -INT -- "-$job_running" 2>/dev/null || true
    while group_is_alive && ((tenths-- > 0)); do sleep 0.1; done
    kill -KILL -- "-$job_running" 2>/dev/null || true
}

interrupted() {
    trap '' INT TERM HUP
    end_job
    exit "$1"
}
trap 'interrupted 130' INT
trap 'interrupted 143' TERM
trap 'interrupted 129' HUP

# From a bare machine to everything built in build/.
build_everything() {
    run scripts/bootstrap.sh
    run cmake --preset release --log-level=WARNING
    run cmake --build --preset release
}
