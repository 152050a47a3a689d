#!/usr/bin/env bash
# Runs the interop tests in a network of their own, against real mail servers that exist nowhere else.
#
# The servers' packages are unpacked below build/interop and laid over /usr in a private mount namespace; nothing is
# installed, and neither the configuration nor the services of the machine are touched. All processes live in a
# process namespace that ends with this command.
source "$(dirname "$0")/../../scripts/lib.sh"
base="$PWD/build/interop"
PACKAGES=("postfix sasl2-bin libsasl2-modules libsasl2-modules-db nsd" exim4-daemon-light opensmtpd dovecot-imapd)

# The packages with what they need and this machine lacks. Not at once: mail servers do not suffer each other.
wanted() {
    local group
    for group in "${PACKAGES[@]}"; do
        # shellcheck disable=SC2086 # a list of names
        apt-get -s install --no-install-recommends $group | sed -n 's/^Inst \([^ ]*\) .*/\1/p'
    done | sort -u
}

fetch() {
    if [ "$(cat "$base/complete" 2>/dev/null)" = "${PACKAGES[*]}" ]; then return; fi
    rm -rf "$base"
    mkdir -p "$base/packages" "$base/root/usr/lib" "$base/root/usr/bin" "$base/root/usr/sbin"
    ln -s usr/lib usr/bin usr/sbin "$base/root/"
    local names
    names="$(wanted 2>"$base/apt.log")" && [ -n "$names" ] || return 1
    # shellcheck disable=SC2086 # a list of names
    (cd "$base/packages" && apt-get download -q $names >>"$base/apt.log" 2>&1) || return 1
    local package
    for package in "$base"/packages/*.deb; do
        dpkg-deb --fsys-tarfile "$package" | tar -x --no-same-owner --keep-directory-symlink -C "$base/root" || return 1
    done
    echo "${PACKAGES[*]}" >"$base/complete"
}

users=()
[ "$(id -u)" -eq 0 ] || users=(--map-auto) # the servers switch between users of their own
need_namespaces --net "${users[@]}"
if ! fetch; then
    if [ "$(id -u)" -eq 0 ]; then apt-get update -q; fi
    fetch || skip "the mail servers' packages cannot be had, see $base/apt.log"
fi
export TOBIX="${TOBIX:-$PWD/build/tobix}" PYTHONDONTWRITEBYTECODE=1
isolated tests/interop/namespace.sh "$base" "$@"
