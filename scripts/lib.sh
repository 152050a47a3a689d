# Shared by the commands in this directory and by those that run the tests in namespaces. Sourced, never run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

TOBIX_PACKAGES=(g++ cmake ninja-build pkg-config libsystemd-dev libssl-dev libunbound-dev libcli11-dev
    nlohmann-json3-dev libgtest-dev libgmock-dev libbenchmark-dev)

# install_missing PACKAGE...: installs what is not there; says which packages are missing when it may not.
install_missing() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! sudo -n true 2>/dev/null; then
            echo "these packages are missing and this user may not install them: ${missing[*]}" >&2
            return 1
        fi
        sudo=(sudo -n)
    fi
    "${sudo[@]}" apt-get update -q
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# build_preset PRESET [TARGET...]: configures it and builds all or the targets; prints nothing but failures.
build_preset() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -- --quiet "${@:2}"
}

# skip WHY: ends the command, which cannot do here what it is for.
skip() {
    echo "$0 skipped: $1" >&2
    exit 77
}

# need_namespaces [OPTION...]: of mounts, of processes, and as the options of unshare say; else the command is skipped.
need_namespaces() {
    isolation=(--mount --pid --fork --kill-child --mount-proc "$@")
    [ "$(id -u)" -eq 0 ] || isolation+=(--map-root-user)
    unshare "${isolation[@]}" true 2>/dev/null || skip "no namespaces for this user"
}

# isolated COMMAND...: runs it in those namespaces, which end with the command that calls this. In the background: a shell
# heeds its traps only while it waits by itself, and unshare heeds no signal that asks it to end.
isolated() {
    unshare "${isolation[@]}" "$@" &
    trap '{ kill -KILL $!; wait $!; } 2>/dev/null || true; exit 143' INT TERM HUP
    wait $!
}

# timed NAME COMMAND...: runs it and tells how long that took. 77 means that it could not run: as a stage it has failed.
# Not for use in a condition: there the command would go on after a failure.
timed() {
    local name="$1" start=$SECONDS result verdict
    shift
    set +e
    (set -e; "$@")
    result=$?
    set -e
    case $result in
        0) verdict=passed ;;
        77) verdict="did not run" ;;
        *) verdict=failed ;;
    esac
    printf '== %s: %s after %d:%02d\n' "$name" "$verdict" $(((SECONDS - start) / 60)) $(((SECONDS - start) % 60))
    return "$result"
}
