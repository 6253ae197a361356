#!/bin/bash
# install-packages.sh LIST...: installs the missing Debian packages of the lists. Quiet and quick when none is missing.
set -euo pipefail

wanted=$(sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$@" | sort -u)
missing=()
for package in $wanted; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "Please install these packages, or sudo." >&2; exit 1; }
    root=(sudo)
fi
apt=("${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o Acquire::Retries=5 -o DPkg::Lock::Timeout=300)
for attempt in 1 2 3; do
    # Package lists may be older than the mirror, so each attempt fetches them again.
    if "${apt[@]}" update && "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; then
        exit 0
    fi
    echo "Attempt $attempt failed." >&2
    sleep $((attempt * 5))
done
exit 1
