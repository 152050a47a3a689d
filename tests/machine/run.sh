#!/usr/bin/env bash
# run.sh BEFORE NOW [unittest arguments]: makes a fresh Debian machine, boots it, and tests the packages of the directory NOW
# on it, with those of BEFORE as the version before; both as the root of this tree sees them.
#
# The machine lives in namespaces of its own and below build-machine/; nothing is left of it. Of this machine it takes the
# package sources, the proxy and the name servers.
source "$(dirname "$0")/../../scripts/lib.sh"
root="$PWD/build-machine/root"

sources() {
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' | sort -u
}

# Small, but with an init system, as a rented machine is; and it has a name.
make_root() {
    local proxy="$root.proxy"
    apt-config dump | grep -i '^Acquire::https\?::Proxy' >"$proxy" || true
    sources | mmdebstrap --quiet --variant=minbase --skip=cleanup/apt/lists --aptopt="$proxy" --dpkgopt=force-unsafe-io \
        --include=systemd-sysv,dbus bookworm "$root" || return 1
    cp "$proxy" "$root/etc/apt/apt.conf.d/proxy"
    cp -L /etc/resolv.conf "$root/etc/resolv.conf"
    echo mail >"$root/etc/hostname"
    printf '127.0.0.1 localhost\n127.0.1.1 mail.example.net mail\n' >"$root/etc/hosts"
    cp "$1"/tobix*.deb "$(mkdir -p "$root/root/before" && echo "$root/root/before")"
    cp "$2"/tobix*.deb "$root/root"
}

[ "$(id -u)" -eq 0 ] || skip "only root can boot a machine"
need_namespaces --ipc --uts
[ -n "$(sources)" ] || apt-get update -q
trap 'rm -rf "$root" "$root.proxy"' EXIT
rm -rf "$root" && mkdir -p "$(dirname "$root")"
make_root "$1" "$2" || skip "the machine's packages cannot be had"
shift 2
cd tests/machine
PYTHONDONTWRITEBYTECODE=1 ROOT="$root" isolated \
    bash -c 'mount -t tmpfs -o mode=755 machine /run && exec python3 -m unittest --failfast "$@"' machine "$@"
