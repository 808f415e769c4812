# shellcheck shell=bash disable=SC2034,SC2120,SC2119
# Sourced by the scripts beside it and by bench/mount: the real programs with a mount, in a place of their own.
#   BUILD=DIRECTORY    the build, or the installation, whose programs are run (build/release)
#   TMPDIR=DIRECTORY   where the place is made (/var/tmp: a disk, where /tmp is often memory)
#   SETTLE=SECONDS     how long the host may take to have everything (300)
#   KEEP=1             leaves the place with its logs when something failed
shopt -s inherit_errexit
export LC_ALL=C.UTF-8
me=${0##*/}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../.." >/dev/null && pwd)
worker=$root/tests/system/mount/worker

complain() { echo "$me: $*" >&2; }
die() { complain "$@"; exit 1; }

# ---- Time

ms() { echo $((${EPOCHREALTIME/./} / 1000)); }
# within SECONDS COMMAND…: runs it until it succeeds; fails when it does not in time.
within() {
    local end=$(($(ms) + $1 * 1000))
    shift
    until "$@"; do
        [[ $(ms) -lt $end ]] || return 1
        sleep 0.02
    done
}
# moment LEAST MOST: lets a random time go by, in milliseconds.
moment() {
    local wait=$(($1 + RANDOM % ($2 - $1 + 1)))
    sleep "$((wait / 1000)).$(printf %03d $((wait % 1000)))"
}

# ---- The place

# open_place: makes $place, with the directory the host serves, and has it cleaned away at the end of the script.
open_place() {
    local build=${BUILD:-$root/build/release} name found
    for name in brindlemard brindlemar-host brindlemar; do
        found=$(compgen -G "$build/src/*/$name" || compgen -G "$build/bin/$name") ||
            die "There is no $name in $build; build it (cmake --build --preset release), or say BUILD=DIRECTORY."
        programs[$name]=$(realpath "$found")
    done
    command -v python3 >/dev/null || die "python3 is missing: apt-get install python3"
    place=$(realpath "$(mktemp -d "${TMPDIR:-/var/tmp}/brindlemar-mount.XXXXXX")")
    trap close_place EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    served=$place/served mount=$place/mount files=$place/mount/Files logs=$place/logs
    shopt -s nullglob
    mkdir "$served" "$logs" "$place/runtime"
    chmod 700 "$place/runtime"
    unset BRINDLEMAR_LIBRARY_DIR
    export BRINDLEMAR_RUNTIME_DIR=$place/runtime XDG_STATE_HOME=$place/state XDG_CACHE_HOME=$place/cache
}
declare -A programs=()

# mounts: what is mounted in the place, the innermost first. Reads the table: a mount whose server died has no files.
mounts() { awk -v top="${place// /\\\\040}/" 'index($5, top) == 1 { print $5 }' /proc/self/mountinfo | tac; }
is_mounted() { mounts | grep -xF -- "${1// /\\040}" >/dev/null; }

close_place() {
    local status=$? each
    trap - EXIT
    trap '' INT TERM HUP
    for each in "$place"/*.pid; do kill "$(<"$each")" 2>/dev/null || true; done
    for each in "$place"/*.pid; do
        each=$(basename "$each" .pid)
        within 5 ended "$each" || end_hard "$each"
    done
    for each in $(mounts); do
        each=$(printf %b "${each//\\/\\0}")
        fusermount3 -uz "$each" 2>/dev/null || umount -l "$each" || true
    done
    if [[ -n $(mounts) ]]; then
        complain "Still mounted below $place, which is therefore left: $(mounts)"
        exit 1
    fi
    if [[ $status -ne 0 && -n ${KEEP:-} ]]; then
        complain "Everything is left in $place."
    else
        rm -rf --one-file-system "$place"
    fi
    exit "$status"
}

# ---- Processes

# start NAME COMMAND…: in the background, its output in $logs/NAME; it ends with the script.
start() {
    local name=$1
    shift
    "$@" >>"$logs/$name" 2>&1 &
    echo $! >"$place/$name.pid"
}
# These two are killed a lot, of which the shell need not tell.
start_service() { start service "${programs[brindlemard]}" --mount "$mount" && disown; }
start_host() { start host "${programs[brindlemar-host]}" "$@" "Files=$served" && disown; } # start_host [OPTION…]
# ended NAME
ended() { ! kill -0 "$(<"$place/$1.pid")" 2>/dev/null; }
# end_softly NAME: as the system does, and no later than a second after.
end_softly() {
    kill "$(<"$place/$1.pid")"
    within 1 ended "$1" || die "The $1 runs a second after it was told to end."
}
# end_hard NAME: as a crash would.
end_hard() {
    local process
    process=$(<"$place/$1.pid")
    kill -9 "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
    within 5 ended "$1" || die "The $1 cannot be killed."
}
brindlemar() { timeout 30 "${programs[brindlemar]}" "$@"; }

# ---- What the service says

# status_is CONDITION: of the service's status, as an expression of Python over `s`.
status_is() {
    brindlemar status --json 2>/dev/null | python3 -c '
import json, sys
s = json.load(sys.stdin)
sys.exit(not eval(sys.argv[1]))' "$1" 2>/dev/null
}
connected() { status_is 's["domain"]["state"] == "connected"'; }
settled() { status_is 's["queue"]["length"] == 0'; }
# The mount shows the host's folder. Asks for the file system's figures, which the kernel never remembers from a service
# that has died. A look that hangs counts as none.
seen() { timeout 2 stat -f -- "$files" >/dev/null 2>&1; }

# open_world [OPTION…]: the host's options. A place that is open already is taken.
open_world() {
    [[ -n ${place:-} ]] || open_place
    start_service
    start_host "$@"
    within 10 seen || { cat "$logs"/*; die "The mount shows nothing after ten seconds."; } >&2
}
# settle: waits until the host has everything; fails when the service gave something up.
settle() {
    if ! within "${SETTLE:-300}" settled; then
        complain "The host still has not everything after ${SETTLE:-300} seconds: $(brindlemar status --json 2>&1)"
        return 1
    fi
    status_is 's["failureCount"] == 0' || { complain "Changes failed: $(brindlemar status 2>&1)"; return 1; }
}

# ---- Workers: programs whose end is looked at

# seeded: makes what follows repeatable, as far as the machine does the same.
seeded() {
    SEED=${SEED:-$RANDOM}
    RANDOM=$SEED
    echo "SEED=$SEED" >&2
}
# start_worker NAME ARGUMENT…: see `worker`. Its output is in $logs/NAME, what it complains of in $logs/NAME.err.
declare -A workers=()
start_worker() {
    local name=$1
    shift
    "$worker" "$@" --seed $RANDOM >>"$logs/$name" 2>>"$logs/$name.err" &
    echo $! >"$place/$name.pid"
    workers[$name]=runs
}
workers_run() {
    local each
    for each in "${!workers[@]}"; do
        ! ended "$each" || die "$each ended before its time: $(tail -n 1 "$logs/$each.err")"
    done
}
# worker_ends NAME: as it should, within ten seconds.
worker_ends() {
    within 10 ended "$1" || die "$1 hangs: $(tail -n 1 "$place/$1.journal" 2>/dev/null)"
    wait "$(<"$place/$1.pid")" || die "$1: $(tail -n 1 "$logs/$1.err")"
    unset "workers[$1]"
}

# ---- Trees

# same_trees ONE OTHER: byte for byte, and the files' dates in whole seconds. Copies that a killed host had not
# finished lie in its directory until the folder is listed next.
same_trees() {
    diff -r --no-dereference -x '.brindlemar-*.part' -- "$1" "$2" >&2 || return 1
    python3 - "$1" "$2" >&2 <<'END'
import os, sys

def dates(top):
    return {os.path.relpath(os.path.join(folder, name), top): os.lstat(os.path.join(folder, name)).st_mtime_ns // 10**9
            for folder, _, names in os.walk(top) for name in names if not name.endswith(".part")}

one, other = map(dates, sys.argv[1:])
wrong = [f"{name}: dates {one.get(name)} and {other.get(name)}"
         for name in sorted({*one, *other}) if one.get(name) != other.get(name)]
print(*wrong[:20], sep="\n", end="\n" if wrong else "")
sys.exit(bool(wrong))
END
}
# make_files FOLDER NUMBER [BYTES]: files 0, 1, …, each with contents of its own, of that many bytes.
make_files() {
    python3 - "$1" "$2" "${3:-100}" <<'END'
import os, sys
folder, number, size = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
os.makedirs(folder, exist_ok=True)
top = os.open(folder, os.O_RDONLY)
for i in range(number):
    file = os.open(str(i), os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644, dir_fd=top)
    if size: os.write(file, (f"{i}\n" * size)[:size].encode())
    os.close(file)
END
}
