#!/usr/bin/env bash
# Runs the cluster tests: GlusterFS, three bricks with replica 3, mounted by two hosts. Servers, mounts and daemons live in
# network, mount and process namespaces that end with this command; what they keep lies below build/cluster and goes, too.
source "$(dirname "$0")/../../scripts/lib.sh"
work="$PWD/build/cluster"

[ "$(id -u)" -eq 0 ] || skip "only the superuser can mount and serve volumes"
[ -c /dev/fuse ] || skip "there is no /dev/fuse"
need_namespaces --net
trap 'rm -rf "$work"' EXIT
rm -rf "$work" && mkdir -p "$work"
export TOBIX="${TOBIX:-$PWD/build/tobix}" PYTHONDONTWRITEBYTECODE=1
isolated tests/cluster/namespace.sh "$work" "$@"
