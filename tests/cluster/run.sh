#!/usr/bin/env bash
# Runs the cluster tests: GlusterFS, three bricks with replica 3, mounted by two hosts. Servers, mounts and daemons live in
# network, mount and process namespaces that end with this command; what they keep lies below build/cluster and goes, too.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "$here/../.." && pwd)/build"

skip() {
    echo "cluster tests skipped: $1" >&2
    exit 77
}

[ "$(id -u)" -eq 0 ] || skip "only the superuser can mount and serve volumes"
[ -c /dev/fuse ] || skip "there is no /dev/fuse"
isolation=(--net --mount --pid --fork --kill-child --mount-proc)
unshare "${isolation[@]}" true 2>/dev/null || skip "no namespaces for this user"
rm -rf "$build/cluster" && mkdir -p "$build/cluster"
export TOBIX="${TOBIX:-$build/tobix}" PYTHONDONTWRITEBYTECODE=1
# In the background: a signal ends this command only while it waits by itself, and with this command all has to end.
unshare "${isolation[@]}" "$here/namespace.sh" "$build/cluster" "$@" &
cluster=$!
trap '{ kill -KILL "$cluster" && wait "$cluster"; } 2>/dev/null || true; rm -rf "$build/cluster"' EXIT
trap 'exit 143' INT TERM HUP
wait "$cluster"
