#!/usr/bin/env bash
# Inside the namespaces: lays out the network, starts the volume, mounts it for two hosts, then runs the tests. Called by
# run.sh.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
bricks="$1"
export TMPDIR="$1/hosts" # of their queues
shift
mkdir "$TMPDIR"

ip link set lo up # where no brick may be
ip link add cluster0 type veth peer name cluster1
ip addr add 192.0.2.1/24 dev cluster0
ip link set cluster0 up
ip link set cluster1 up
for directory in /run /var/lib/glusterd /var/log/glusterfs; do
    mkdir -p "$directory"
    mount -t tmpfs -o mode=755 cluster "$directory"
done
mkdir -p /run/lock /run/gluster /run/cluster/1 /run/cluster/2

glusterd --no-daemon --log-level WARNING &
for _ in {1..100}; do
    if gluster --mode=script volume list >/dev/null 2>&1; then break; fi
    sleep 0.1
done
gluster --mode=script volume create mail replica 3 "192.0.2.1:$bricks/"{1,2,3} force >/dev/null
gluster --mode=script volume start mail >/dev/null
for host in 1 2; do
    mount -t glusterfs 192.0.2.1:/mail "/run/cluster/$host"
done
cd "$here"
exec python3 -m unittest "$@"
