#!/usr/bin/env bash
# Inside the namespaces: lays out the network and the file system, then runs the tests. Called by run.sh.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
packages="$1/root"
shift

# An adapter that is neither loopback nor tunnel, so that both address families count as usable.
ip link set lo up
ip link add mail0 type dummy 2>/dev/null || { ip link add mail0 type veth peer name mail1 && ip link set mail1 up; }
ip link set mail0 up
for host in 1 11 12 13 14 15 16; do
    ip addr add "192.0.2.$host/24" dev mail0
    ip -6 addr add "2001:db8::$host/64" dev mail0 nodad
done

mount -t tmpfs -o mode=755 interop /run
mkdir -p /run/interop/{log,mail,tls,dns,empty,postfix,exim,sasl,dovecot,upper,work}
lay_over() { # directory: what the packages bring comes on top of it, and changes go to memory
    local name="${1//\//-}"
    mkdir -p "$packages$1" "/run/interop/upper/$name" "/run/interop/scratch/$name"
    mount -t overlay -o "lowerdir=$packages$1:$1,upperdir=/run/interop/upper/$name,workdir=/run/interop/scratch/$name" interop "$1"
}
lay_over /usr
lay_over /etc
lay_over /var/lib
mount -t tmpfs -o mode=755 interop /var/spool
mkdir /var/spool/postfix
if [ -e /dev/log ]; then mount --bind /dev/null /dev/log; fi

cp -r "$here"/etc/. /etc/
uid=60100
for user in postfix postdrop Debian-exim opensmtpd opensmtpq nsd vmail dovecot dovenull tobix-feed tobix-inject; do
    uid=$((uid + 1))
    sed -i "/^$user:/d" /etc/passwd /etc/group
    echo "$user:x:$uid:$uid::/run/interop/empty:/usr/sbin/nologin" >>/etc/passwd
    echo "$user:x:$uid:" >>/etc/group
done
sed -i '/^tobix-inject:/s/$/vmail/' /etc/group
chown vmail: /run/interop/mail
chmod 711 /run/interop/empty

cd "$here"
exec python3 -m unittest "$@"
