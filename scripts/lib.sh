# Shared by the commands in this directory. Sourced, never run.
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
